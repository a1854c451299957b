#include "filler_model.h"
#include "filler_settings_store.h"
#include "memory_local_settings.h"

#include <gtest/gtest.h>

namespace tamo::test {
namespace {

using core::FillerPlaylists;

TEST(FillerModelTest, WordsAndNamesAreNormalised) {
    const std::vector<std::pair<std::string, std::string>> modes = {
        {"Between Singers", "between"}, {"BETWEEN", "between"}, {"between", "between"},
        {"Continuous", "continuous"},   {"manual", "manual"},   {"off", "off"},
        {"", "off"},                    {"sometimes", "off"},   {" manual", "off"},
    };
    for (const auto& [text, expected] : modes) EXPECT_EQ(core::normalizeFillerMode(text), expected) << text;

    EXPECT_EQ(core::normalizePlaylistName("  Warm up \t"), "Warm up");
    EXPECT_EQ(core::normalizePlaylistName(" \n "), "Default");
    EXPECT_EQ(core::normalizePlaylistName(std::string(100, 'a')), std::string(80, 'a'));
    // Characters, not bytes: 100 two-byte letters keep 80 whole letters.
    std::string accented;
    for (int i = 0; i < 100; ++i) accented += "\xC3\xA9";
    EXPECT_EQ(core::normalizePlaylistName(accented), accented.substr(0, 160));
}

TEST(FillerModelTest, PlaylistsTextRoundTripsInKeyOrder) {
    const FillerPlaylists playlists = {{"Late", {"/m/c.mp3"}}, {"Default", {"/m/a.mp3", "/m/b.mp3"}}, {"Empty", {}}};
    const std::string text = core::formatFillerPlaylists(playlists);
    EXPECT_EQ(text, "Default\x1F/m/a.mp3\x1F/m/b.mp3\x1E" "Empty\x1E" "Late\x1F/m/c.mp3");
    EXPECT_EQ(core::parseFillerPlaylists(text), playlists);

    EXPECT_EQ(core::parseFillerPlaylists(""), (FillerPlaylists{{"Default", {}}}));
    EXPECT_EQ(core::parseFillerPlaylists("  Mix \x1F\x1F/m/a.mp3\x1F"), (FillerPlaylists{{"Mix", {"/m/a.mp3"}}}));
    EXPECT_EQ(core::parseFillerPlaylists(" \x1F/m/a.mp3\x1E" "Default\x1F/m/b.mp3"),
              (FillerPlaylists{{"Default", {"/m/a.mp3", "/m/b.mp3"}}}));
}

TEST(FillerModelTest, SettingsAreReadInOrderWithTheirFallbacks) {
    shell::MemoryLocalSettings local;
    core::FillerSettings defaults = shell::loadFillerSettings(local);
    EXPECT_EQ(defaults.playlistName, "Default");
    EXPECT_EQ(defaults.mode, "manual");
    EXPECT_EQ(defaults.volume, 0.45);
    EXPECT_EQ(defaults.playlists, (FillerPlaylists{{"Default", {}}}));

    // The older single list fills an empty active list.
    local.values = {{"fillerPlaylistName", std::string("Party")},
                    {"fillerPlaylists", std::string("")},
                    {"fillerPlaylist", std::string("/m/a.mp3\n\n/m/b.mp3\r\n")},
                    {"fillerMode", std::string("Between Singers")},
                    {"fillerVolume", 1.2},
                    {"fillerShuffle", std::string("true")},
                    {"fillerCurrentIndex", 3.0}};
    core::FillerSettings read = shell::loadFillerSettings(local);
    EXPECT_EQ(read.playlistName, "Party");
    EXPECT_EQ(read.tracks, (std::vector<std::string>{"/m/a.mp3", "/m/b.mp3"}));
    EXPECT_EQ(read.playlists.size(), 2u);
    EXPECT_EQ(read.mode, "between");
    EXPECT_EQ(read.volume, 1.0);
    EXPECT_TRUE(read.shuffle);
    EXPECT_EQ(read.currentIndex, 3);

    // The single list fills the active list even where the map lacks it; a
    // name the map lacks otherwise gives way to the map's first key.
    local.values = {{"fillerPlaylistName", std::string("Gone")},
                    {"fillerPlaylists", std::string("B\x1F/m/b.mp3\x1E" "A\x1F/m/a.mp3")},
                    {"fillerPlaylist", std::string("/m/z.mp3")},
                    {"fillerMode", 7.0},
                    {"fillerVolume", std::string("loud")}};
    read = shell::loadFillerSettings(local);
    EXPECT_EQ(read.playlistName, "Gone");
    EXPECT_EQ(read.tracks, (std::vector<std::string>{"/m/z.mp3"}));
    EXPECT_EQ(read.playlists.size(), 3u);
    EXPECT_EQ(read.mode, "manual");
    EXPECT_EQ(read.volume, 0.45);
    local.values.erase("fillerPlaylist");
    read = shell::loadFillerSettings(local);
    EXPECT_EQ(read.playlistName, "A");
    EXPECT_EQ(read.tracks, (std::vector<std::string>{"/m/a.mp3"}));

    // What a save writes reads back the same, and a refusing store says so.
    shell::MemoryLocalSettings store;
    ASSERT_TRUE(shell::saveFillerSettings(store, read));
    EXPECT_EQ(shell::loadFillerSettings(store), read);
    store.refuseWrites = true;
    EXPECT_FALSE(shell::saveFillerSettings(store, read));
}

}  // namespace
}  // namespace tamo::test
