#include "event_core.h"
#include "event_fixture.h"

#include <cmath>
#include <functional>
#include <gtest/gtest.h>

namespace tamo::core {
namespace {

EventSnapshot validSnapshot(const EventCore& core) {
    EventSnapshot s;
    s.nextSingerId = 3;
    s.nextQueueId = 5;
    s.nextHistoryId = 8;
    s.singers = {{1, " Ana "}, {2, "Bo"}};
    s.queue = {{1, 1, *core.songById(1), "stale"}, {2, 2, *core.songById(2), ""}};
    s.current = QueueEntry{4, 2, *core.songById(1), ""};
    s.history = {{7, 9, Song{0, "/old/x.mp3", "X", "", "mp3", ""}, "  ", 12.5}};
    s.playbackStatus = PlaybackStatus::Paused;
    s.musicVolume = 2.0;
    return s;
}

TEST(RestoreEvent, AcceptsAWholeValidEventAndRebindsIt) {
    EventCore core;
    test::addSongs(core, 2);
    ASSERT_TRUE(core.restoreEvent(validSnapshot(core)));
    EXPECT_EQ(core.singers()[0].name, "Ana");
    EXPECT_EQ(core.queue()[0].singer, "Ana");
    EXPECT_EQ(core.current()->singer, "Bo");
    EXPECT_EQ(core.history()[0].singer, "Singer");
    EXPECT_EQ(core.history()[0].song.id, 0);
    EXPECT_EQ(core.musicVolume(), 1.0);
    EXPECT_EQ(core.nextSingerId(), 3);
    EXPECT_EQ(core.addSinger("C"), 3);
}

TEST(RestoreEvent, RefusesAnyFlawAndKeepsTheEvent) {
    EventCore core;
    test::addSongs(core, 2);
    core.addSinger("Keep");
    const EventSnapshot kept = core.snapshot();

    const std::vector<std::pair<const char*, std::function<void(EventSnapshot&)>>> flaws = {
        {"next singer id not above the largest", [](EventSnapshot& s) { s.nextSingerId = 2; }},
        {"duplicate singer id", [](EventSnapshot& s) { s.singers[1].id = 1; }},
        {"blank singer name", [](EventSnapshot& s) { s.singers[1].name = " \n"; }},
        {"singer id zero", [](EventSnapshot& s) { s.singers[0].id = 0; }},
        {"queue entry of an unknown singer", [](EventSnapshot& s) { s.queue[0].singerId = 5; }},
        {"duplicate queue id", [](EventSnapshot& s) { s.queue[1].id = 1; }},
        {"queue song not in library", [](EventSnapshot& s) { s.queue[0].song = test::makeSong(1, "/elsewhere.mp3"); }},
        {"current id equal to a queue id", [](EventSnapshot& s) { s.current->id = 2; }},
        {"next queue id not above current", [](EventSnapshot& s) { s.nextQueueId = 4; }},
        {"duplicate history id", [](EventSnapshot& s) { s.history.push_back(s.history[0]); }},
        {"negative history singer", [](EventSnapshot& s) { s.history[0].singerId = -1; }},
        {"history played at NaN", [](EventSnapshot& s) { s.history[0].playedAt = std::nan(""); }},
        {"history played before the epoch", [](EventSnapshot& s) { s.history[0].playedAt = -1; }},
        {"lost history without a title", [](EventSnapshot& s) { s.history[0].song.title.clear(); }},
        {"next history id not above", [](EventSnapshot& s) { s.nextHistoryId = 7; }},
        {"volume not finite", [](EventSnapshot& s) { s.musicVolume = INFINITY; }},
        {"playing without current",
         [](EventSnapshot& s) {
             s.current.reset();
             s.playbackStatus = PlaybackStatus::Playing;
         }},
        {"unknown status", [](EventSnapshot& s) { s.playbackStatus = static_cast<PlaybackStatus>(3); }},
        {"too many singers",
         [](EventSnapshot& s) {
             for (int i = 3; i <= 10001; ++i) s.singers.push_back({i, "S"});
             s.nextSingerId = 20000;
         }},
    };
    for (const auto& [name, flaw] : flaws) {
        EventSnapshot snapshot = validSnapshot(core);
        ASSERT_TRUE(EventCore(core).restoreEvent(snapshot)) << name;
        flaw(snapshot);
        EXPECT_FALSE(core.restoreEvent(snapshot)) << name;
        EXPECT_EQ(core.snapshot(), kept) << name;
    }
}

TEST(RestoreEvent, ReplacingTheLibraryKeepsIdsAndRebindsByPath) {
    EventCore core;
    test::addSongs(core, 3);
    const auto a = core.addSinger("A");
    core.enqueueForSinger(1, a);
    core.enqueueForSinger(2, a);
    core.advance();  // current: song 1
    core.restoreHistoryEntry(2, a, "A", 1.0);

    // Song 2 leaves the library; song 1 changes title; a new file arrives.
    std::vector<Song> next = {test::makeSong(0, "/media/new.mp3", "New"), test::makeSong(0, "/media/song-1.mp3", "Renamed"),
                              test::makeSong(0, "/media/song-3.mp3", "T3"), test::makeSong(0, "/media/song-1.mp3", "Later"), Song{}};
    ASSERT_TRUE(core.replaceLibrary(next));
    ASSERT_EQ(core.songCount(), 3U);
    EXPECT_EQ(core.songs()[0].id, 4);
    EXPECT_EQ(core.songByPath("/media/song-1.mp3")->id, 1);
    EXPECT_EQ(core.songByPath("/media/song-1.mp3")->title, "Later");
    EXPECT_EQ(core.songById(3)->path, "/media/song-3.mp3");
    EXPECT_EQ(core.songById(2), nullptr);
    EXPECT_TRUE(core.queue().empty());
    EXPECT_EQ(core.current()->song.title, "Later");
    ASSERT_EQ(core.history().size(), 1U);
    EXPECT_EQ(core.history()[0].song.id, 0);
    EXPECT_EQ(core.history()[0].song.path, "/media/song-2.mp3");
    EXPECT_EQ(core.nextSongId(), 5);

    // The same files again keep every identity.
    const std::vector<Song> same = core.songs();
    ASSERT_TRUE(core.replaceLibrary(same));
    EXPECT_EQ(core.songs(), same);

    // add_song on an existing path changes fields, never the identity.
    EXPECT_EQ(core.addSong("/media/new.mp3", " Newer ", "", ""), 4);
    EXPECT_EQ(core.songById(4)->title, "Newer");
}

}  // namespace
}  // namespace tamo::core
