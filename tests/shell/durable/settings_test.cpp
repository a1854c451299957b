#include "appearance_settings.h"
#include "durable_fixture.h"
#include "file_local_settings.h"
#include "filler_model.h"
#include "filler_settings_store.h"
#include "fixed_paths.h"
#include "memory_local_settings.h"
#include "settings_file.h"
#include "settings_watch.h"
#include "startup_settings.h"

#include <nlohmann/json.hpp>

#include <functional>

namespace tamo::test {
namespace {

namespace fs = std::filesystem;
using shell::SettingsSnapshot;
using Json = nlohmann::ordered_json;
using Strings = std::map<std::string, std::string>;
using core::FillerPlaylists;
using core::FillerSettings;

class SettingsTest : public DurableTest {
protected:
    void write(const Json& json) const { writeText(file, json.dump()); }
    Json saved() const { return Json::parse(readWhole(file)); }

    const fs::path file = dataRoot / "tamo.json";
};

TEST_F(SettingsTest, EveryKeyIsReadWithItsClampAndNothingElseChanges) {
    struct Case {
        const char* object;
        const char* key;  // nullptr: the value replaces the whole object
        Json value;
        std::function<void(SettingsSnapshot&)> expect;
    };
    const std::vector<Case> cases = {
        {"application", "fontSize", 8, [](auto& s) { s.fontSize = 12; }},
        {"application", "fontSize", 40, [](auto& s) { s.fontSize = 30; }},
        {"application", "fontSize", 17.6, [](auto& s) { s.fontSize = 18; }},
        {"application", "fontSize", "20", [](auto&) {}},
        {"remote", "port", 80, [](auto& s) { s.remotePort = 1024; }},
        {"remote", "port", 70000, [](auto& s) { s.remotePort = 65535; }},
        {"playback", "musicVolume", 1.2, [](auto& s) { s.musicVolume = 1.0; }},
        {"playback", "musicVolume", -3, [](auto& s) { s.musicVolume = 0.0; }},
        {"playback", "musicVolume", 0.3, [](auto& s) { s.musicVolume = 0.3; }},
        {"search", "commonFilenameWords", 5, [](auto& s) { s.commonFilenameWords = 100; }},
        {"search", "commonFilenameWords", 1e9, [](auto& s) { s.commonFilenameWords = 50000; }},
        {"application", "commandLabels", "icons", [](auto&) {}},
        {"application", "commandLabels", "icon", [](auto& s) { s.commandLabels = "icon"; }},
        {"appearance", "theme", "dark", [](auto& s) { s.theme = "dark"; }},
        {"appearance", "theme", "neon", [](auto&) {}},
        {"appearance", "accent", "teal", [](auto& s) { s.accent = "teal"; }},
        {"appearance", "accent", "red", [](auto&) {}},
        {"appearance", "skinPreset", "stage", [](auto& s) { s.skinPreset = "stage"; }},
        {"appearance", "skin", {{"canvas", "#12345"}, {"surface", "#GG0000"}, {"border", "#0a0B0c"}, {"x", "#000000"}},
         [](auto& s) { s.skin = {{"border", "#0a0B0c"}}; }},
        {"playback", "proMode", true, [](auto& s) { s.proMode = true; }},
        {"playback", "doubleClickRequiredForPlayStop", false,
         [](auto& s) { s.doubleClickRequiredForPlayStop = false; }},
        {"playback", "moveSingerToBottomWhenLive", "yes", [](auto&) {}},
        {"remote", "enabled", false, [](auto& s) { s.remoteEnabled = false; }},
        {"media", "folder", "/srv/karaoke", [](auto& s) { s.mediaFolder = "/srv/karaoke"; }},
        {"application", "diagnosticsEnabled", true, [](auto& s) { s.diagnosticsEnabled = true; }},
        {"application", nullptr, "big", [](auto&) {}},
    };
    for (const Case& c : cases) {
        Json document = {{"version", 1}};
        if (c.key == nullptr) document[c.object] = c.value;
        else document[c.object][c.key] = c.value;
        write(document);
        SettingsSnapshot settings;
        SettingsSnapshot expected;
        c.expect(expected);
        EXPECT_TRUE(shell::loadSettingsFile(file, settings)) << document;
        EXPECT_EQ(settings, expected) << document;
    }
}

TEST_F(SettingsTest, AFileThatCannotBeUsedIsIgnoredWholeAndNeverOverwritten) {
    SettingsSnapshot settings;
    settings.fontSize = 22;
    const SettingsSnapshot before = settings;
    EXPECT_FALSE(shell::loadSettingsFile(file, settings));
    const std::vector<std::string> unusable = {
        Json{{"version", 2}, {"application", {{"fontSize", 16}}}}.dump(),
        Json{{"version", "1"}, {"application", {{"fontSize", 16}}}}.dump(),
        Json{{"application", {{"fontSize", 16}}}}.dump(),
        "",
        "[1]",
        "{\"version\":1,",
        "{\"version\":1,\"application\":{\"fontSize\":16},\"pad\":\"" + std::string(262144, 'x') + "\"}",
    };
    for (const std::string& text : unusable) {
        writeText(file, text);
        EXPECT_FALSE(shell::loadSettingsFile(file, settings)) << text.substr(0, 60);
        EXPECT_EQ(settings, before);
        EXPECT_FALSE(shell::saveSettingsFile(file, settings)) << text.substr(0, 60);
        EXPECT_FALSE(shell::writeDurableStrings(file, {{"a", "b"}}));
        EXPECT_EQ(readWhole(file), text);
    }
    // Exactly at the limit it is still read.
    std::string atLimit = "{\"version\":1,\"application\":{\"fontSize\":16},\"pad\":\"\"}";
    atLimit.insert(atLimit.size() - 2, std::string(262144 - atLimit.size(), 'x'));
    writeText(file, atLimit);
    EXPECT_TRUE(shell::loadSettingsFile(file, settings));
    EXPECT_EQ(settings.fontSize, 16);
}

TEST_F(SettingsTest, SavingKeepsUnknownKeysAndTheDurableStrings) {
    write({{"version", 1},
           {"diagnostics", {{"crashDumps", true}}},
           {"application", {{"fontSize", 13}, {"futureOption", "keep me"}}},
           {"appearance", {{"skin", {{"canvas", "#000000"}, {"glow", "#111111"}}}}},
           {"durableStrings", {{"lastExport", "/tmp/x"}, {"count", 4}}},
           {"remote", 5}});
    SettingsSnapshot settings;
    ASSERT_TRUE(shell::loadSettingsFile(file, settings));
    settings.fontSize = 28;
    settings.musicVolume = 0.1 + 0.2;
    settings.remotePort = 9000;
    settings.skin = {{"accent", "#FF00AA"}};
    ASSERT_TRUE(shell::saveSettingsFile(file, settings));
    const Json json = saved();
    EXPECT_EQ(json["diagnostics"]["crashDumps"], true);
    EXPECT_EQ(json["application"]["futureOption"], "keep me");
    EXPECT_EQ(json["appearance"]["skin"], (Json{{"glow", "#111111"}, {"accent", "#FF00AA"}}));
    EXPECT_EQ(json["remote"]["port"], 9000);
    SettingsSnapshot again;
    ASSERT_TRUE(shell::loadSettingsFile(file, again));
    EXPECT_EQ(again, settings);

    // The durable strings keep only strings, and skip empty keys on writing.
    EXPECT_EQ(shell::readDurableStrings(file), (Strings{{"lastExport", "/tmp/x"}}));
    ASSERT_TRUE(shell::writeDurableStrings(file, {{"", "lost"}, {"night", "Friday"}}));
    EXPECT_EQ(shell::readDurableStrings(file), (Strings{{"night", "Friday"}}));
    EXPECT_EQ(saved()["application"]["fontSize"], 28);

    // A fresh file is created whole.
    fs::remove(file);
    ASSERT_TRUE(shell::saveSettingsFile(file, SettingsSnapshot{}));
    SettingsSnapshot fresh;
    fresh.fontSize = 20;
    ASSERT_TRUE(shell::loadSettingsFile(file, fresh));
    EXPECT_EQ(fresh, SettingsSnapshot{});
}

TEST_F(SettingsTest, AppearanceFallbackAndTheSourcesAtStart) {
    const fs::path appearance = core::appearanceSettingsPath();
    shell::AppearanceSettings look;
    look.theme = "dark";
    look.skin = {{"canvas", "#000000"}};
    look.applicationFontSize = 18;
    look.proMode = true;
    ASSERT_TRUE(shell::saveAppearanceSettings(appearance, look));
    shell::AppearanceSettings read;
    ASSERT_TRUE(shell::loadAppearanceSettings(appearance, read));
    EXPECT_EQ(read, look);
    std::string oversized = Json{{"version", 1}, {"theme", "light"}, {"pad", ""}}.dump();
    oversized.insert(oversized.size() - 2, std::string(1025 - oversized.size(), 'x'));
    writeText(dataRoot / "big.json", oversized);
    EXPECT_FALSE(shell::loadAppearanceSettings(dataRoot / "big.json", read));
    EXPECT_EQ(read, look);

    // Without a usable tamo.json: volume from the local store, else from
    // the recovered event; the look from the fallback file, then the store.
    shell::MemoryLocalSettings local;
    auto start = shell::resolveStartupSettings(file, appearance, local, 0.4);
    EXPECT_FALSE(start.fromSettingsFile);
    EXPECT_EQ(start.settings.musicVolume, 0.4);
    EXPECT_EQ(start.settings.theme, "dark");
    EXPECT_EQ(start.settings.fontSize, 18);
    EXPECT_TRUE(start.settings.proMode);
    local.values = {{"musicVolume", std::string("0.6")}, {"appearanceThemeMode", std::string("light")},
                    {"remotePort", 80.0}, {"remoteServerEnabled", false}};
    start = shell::resolveStartupSettings(file, appearance, local, 0.4);
    EXPECT_EQ(start.settings.musicVolume, 0.6);
    EXPECT_EQ(start.settings.theme, "light");
    EXPECT_EQ(start.settings.remotePort, 1024);
    EXPECT_FALSE(start.settings.remoteEnabled);

    // A usable tamo.json wins whole.
    write({{"version", 1}, {"playback", {{"musicVolume", 0.2}}}});
    start = shell::resolveStartupSettings(file, appearance, local, 0.4);
    EXPECT_TRUE(start.fromSettingsFile);
    EXPECT_EQ(start.settings.musicVolume, 0.2);
    EXPECT_EQ(start.settings.theme, "system");
}

TEST_F(SettingsTest, LocalStoresAndTheChangeWatch) {
    const fs::path path = shell::FileLocalSettings::standardPath();
    {
        shell::FileLocalSettings store(path);
        ASSERT_TRUE(store.writeLocalSetting("mediaFolder", std::string("/srv/media")));
        ASSERT_TRUE(store.writeLocalSetting("remoteServerEnabled", false));
        ASSERT_TRUE(store.writeLocalSetting("fillerVolume", 0.1 + 0.2));
    }
    const shell::FileLocalSettings reopened(path);
    EXPECT_EQ(shell::localSettingText(reopened.readLocalSetting("mediaFolder")), "/srv/media");
    EXPECT_EQ(shell::localSettingBool(reopened.readLocalSetting("remoteServerEnabled")), false);
    EXPECT_EQ(shell::localSettingNumber(reopened.readLocalSetting("fillerVolume")), 0.1 + 0.2);
    writeText(path, "{broken");
    EXPECT_FALSE(shell::FileLocalSettings(path).writeLocalSetting("mediaFolder", std::string("/x")));
    EXPECT_EQ(readWhole(path), "{broken");

    shell::SettingsFileWatch watch(file);
    EXPECT_FALSE(watch.changed());
    write({{"version", 1}});
    EXPECT_TRUE(watch.changed());
    EXPECT_FALSE(watch.changed());
    // A same-size rewrite through a rename is seen as well.
    writeText(dataRoot / "tamo.json.new", Json{{"version", 2}}.dump());
    fs::rename(dataRoot / "tamo.json.new", file);
    EXPECT_TRUE(watch.changed());
    fs::remove(file);
    EXPECT_TRUE(watch.changed());
}

TEST(FillerModelTest, TextFormsAreNormalisedAndPlaylistsRoundTripInKeyOrder) {
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
    EXPECT_EQ(shell::loadFillerSettings(local),
              (FillerSettings{"Default", {{"Default", {}}}, {}, "manual", false, 0, 0.45}));

    // The older single list fills an empty active list.
    local.values = {{"fillerPlaylistName", std::string("Party")},
                    {"fillerPlaylists", std::string("")},
                    {"fillerPlaylist", std::string("/m/a.mp3\n\n/m/b.mp3\r\n")},
                    {"fillerMode", std::string("Between Singers")},
                    {"fillerVolume", 1.2},
                    {"fillerShuffle", std::string("true")},
                    {"fillerCurrentIndex", 3.0}};
    const std::vector<std::string> party = {"/m/a.mp3", "/m/b.mp3"};
    EXPECT_EQ(shell::loadFillerSettings(local),
              (FillerSettings{"Party", {{"Default", {}}, {"Party", party}}, party, "between", true, 3, 1.0}));

    // The single list fills the active list even where the map lacks it; a
    // name the map lacks otherwise gives way to the map's first key. Values
    // of the wrong type leave their defaults.
    local.values = {{"fillerPlaylistName", std::string("Gone")},
                    {"fillerPlaylists", std::string("B\x1F/m/b.mp3\x1E" "A\x1F/m/a.mp3")},
                    {"fillerPlaylist", std::string("/m/z.mp3")},
                    {"fillerMode", 7.0},
                    {"fillerVolume", std::string("loud")}};
    const FillerPlaylists stored = {{"A", {"/m/a.mp3"}}, {"B", {"/m/b.mp3"}}};
    FillerPlaylists withGone = stored;
    withGone["Gone"] = {"/m/z.mp3"};
    EXPECT_EQ(shell::loadFillerSettings(local),
              (FillerSettings{"Gone", withGone, {"/m/z.mp3"}, "manual", false, 0, 0.45}));
    local.values.erase("fillerPlaylist");
    const FillerSettings read = shell::loadFillerSettings(local);
    EXPECT_EQ(read, (FillerSettings{"A", stored, {"/m/a.mp3"}, "manual", false, 0, 0.45}));

    // What a save writes reads back the same, and a refusing store says so.
    shell::MemoryLocalSettings store;
    ASSERT_TRUE(shell::saveFillerSettings(store, read));
    EXPECT_EQ(shell::loadFillerSettings(store), read);
    store.refuseWrites = true;
    EXPECT_FALSE(shell::saveFillerSettings(store, read));
}

}  // namespace
}  // namespace tamo::test
