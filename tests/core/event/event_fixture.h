#pragma once

#include "event_core.h"

#include <string>

namespace tamo::test {

inline core::Song makeSong(std::int32_t id, std::string path, std::string title = "") {
    core::Song song;
    song.id = id;
    song.path = std::move(path);
    song.title = std::move(title);
    return song;
}

// Adds `count` songs with paths "/media/song-<n>.mp3" and returns the core.
inline void addSongs(core::EventCore& core, int count) {
    for (int i = 1; i <= count; ++i) {
        core::Song song;
        song.path = "/media/song-" + std::to_string(i) + ".mp3";
        song.title = "Title " + std::to_string(i);
        song.artist = "Artist";
        song.format = "mp3";
        core.upsertSong(song);
    }
}

}  // namespace tamo::test
