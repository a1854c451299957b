#include "appearance_settings.h"
#include "durable_fixture.h"
#include "file_local_settings.h"
#include "fixed_paths.h"
#include "memory_local_settings.h"
#include "settings_file.h"
#include "settings_watch.h"
#include "startup_settings.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace tamo::test {
namespace {

namespace fs = std::filesystem;
using shell::SettingsSnapshot;
using Json = nlohmann::ordered_json;

class SettingsTest : public DurableTest {
protected:
    void SetUp() override {
        DurableTest::SetUp();
        file = dataRoot / "tamo.json";
    }
    void write(const Json& json) const { std::ofstream(file, std::ios::trunc) << json.dump(); }
    Json saved() const { return Json::parse(readWhole(file)); }

    fs::path file;
};

TEST_F(SettingsTest, EveryKeyIsReadWithItsClamp) {
    struct Case {
        Json document;
        std::function<bool(const SettingsSnapshot&)> holds;
        const char* name;
    };
    const auto section = [](const char* object, const char* key, Json value) {
        return Json{{"version", 1}, {object, {{key, std::move(value)}}}};
    };
    const std::vector<Case> cases = {
        {section("application", "fontSize", 8), [](auto& s) { return s.fontSize == 12; }, "font 8"},
        {section("application", "fontSize", 40), [](auto& s) { return s.fontSize == 30; }, "font 40"},
        {section("application", "fontSize", 17.6), [](auto& s) { return s.fontSize == 18; }, "font rounded"},
        {section("application", "fontSize", "20"), [](auto& s) { return s.fontSize == 14; }, "font as text"},
        {section("remote", "port", 80), [](auto& s) { return s.remotePort == 1024; }, "port 80"},
        {section("remote", "port", 70000), [](auto& s) { return s.remotePort == 65535; }, "port 70000"},
        {section("playback", "musicVolume", 1.2), [](auto& s) { return s.musicVolume == 1.0; }, "volume high"},
        {section("playback", "musicVolume", -3), [](auto& s) { return s.musicVolume == 0.0; }, "volume low"},
        {section("playback", "musicVolume", 0.3), [](auto& s) { return s.musicVolume == 0.3; }, "volume kept"},
        {section("search", "commonFilenameWords", 5), [](auto& s) { return s.commonFilenameWords == 100; },
         "words low"},
        {section("search", "commonFilenameWords", 1e9), [](auto& s) { return s.commonFilenameWords == 50000; },
         "words high"},
        {section("application", "commandLabels", "icons"), [](auto& s) { return s.commandLabels == "both"; },
         "labels unknown"},
        {section("application", "commandLabels", "icon"), [](auto& s) { return s.commandLabels == "icon"; },
         "labels icon"},
        {section("appearance", "theme", "dark"), [](auto& s) { return s.theme == "dark"; }, "theme dark"},
        {section("appearance", "theme", "neon"), [](auto& s) { return s.theme == "system"; }, "theme unknown"},
        {section("appearance", "accent", "teal"), [](auto& s) { return s.accent == "teal"; }, "accent teal"},
        {section("appearance", "accent", "red"), [](auto& s) { return s.accent == "blue"; }, "accent unknown"},
        {section("appearance", "skinPreset", "stage"), [](auto& s) { return s.skinPreset == "stage"; }, "skin"},
        {section("appearance", "skin", {{"canvas", "#12345"}, {"surface", "#GG0000"}, {"border", "#0a0B0c"},
                                        {"glow", "#000000"}}),
         [](auto& s) { return s.skin == shell::SkinColours{{"border", "#0a0B0c"}}; }, "colours"},
        {section("playback", "proMode", true), [](auto& s) { return s.proMode; }, "pro mode"},
        {section("playback", "doubleClickRequiredForPlayStop", false),
         [](auto& s) { return !s.doubleClickRequiredForPlayStop; }, "double click"},
        {section("playback", "moveSingerToBottomWhenLive", "yes"),
         [](auto& s) { return !s.moveSingerToBottomWhenLive; }, "flag as text"},
        {section("remote", "enabled", false), [](auto& s) { return !s.remoteEnabled; }, "remote off"},
        {section("media", "folder", "/srv/karaoke"), [](auto& s) { return s.mediaFolder == "/srv/karaoke"; },
         "folder"},
        {section("application", "diagnosticsEnabled", true), [](auto& s) { return s.diagnosticsEnabled; },
         "diagnostics"},
        {Json{{"version", 1}, {"application", "big"}}, [](auto& s) { return s == SettingsSnapshot{}; },
         "section of the wrong type"},
    };
    for (const Case& c : cases) {
        write(c.document);
        SettingsSnapshot settings;
        EXPECT_TRUE(shell::loadSettingsFile(file, settings)) << c.name;
        EXPECT_TRUE(c.holds(settings)) << c.name;
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
        std::ofstream(file, std::ios::trunc) << text;
        EXPECT_FALSE(shell::loadSettingsFile(file, settings)) << text.substr(0, 60);
        EXPECT_EQ(settings, before);
        EXPECT_FALSE(shell::saveSettingsFile(file, settings)) << text.substr(0, 60);
        EXPECT_FALSE(shell::writeDurableStrings(file, {{"a", "b"}}));
        EXPECT_EQ(readWhole(file), text);
    }
    // Exactly at the limit it is still read.
    std::string atLimit = "{\"version\":1,\"application\":{\"fontSize\":16},\"pad\":\"\"}";
    atLimit.insert(atLimit.size() - 2, std::string(262144 - atLimit.size(), 'x'));
    std::ofstream(file, std::ios::trunc) << atLimit;
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
    EXPECT_EQ(json.begin().key(), "version");
    EXPECT_EQ(json["diagnostics"]["crashDumps"], true);
    EXPECT_EQ(json["application"]["futureOption"], "keep me");
    EXPECT_EQ(json["appearance"]["skin"], (Json{{"glow", "#111111"}, {"accent", "#FF00AA"}}));
    EXPECT_EQ(json["durableStrings"]["lastExport"], "/tmp/x");
    EXPECT_EQ(json["remote"]["port"], 9000);
    EXPECT_EQ(json["playback"]["musicVolume"].get<double>(), 0.1 + 0.2);

    SettingsSnapshot again;
    ASSERT_TRUE(shell::loadSettingsFile(file, again));
    EXPECT_EQ(again, settings);

    // The durable strings keep only strings, and skip empty keys on writing.
    EXPECT_EQ(shell::readDurableStrings(file), (std::map<std::string, std::string>{{"lastExport", "/tmp/x"}}));
    ASSERT_TRUE(shell::writeDurableStrings(file, {{"", "lost"}, {"night", "Friday"}}));
    EXPECT_EQ(shell::readDurableStrings(file), (std::map<std::string, std::string>{{"night", "Friday"}}));
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
    std::ofstream(appearance, std::ios::trunc) << oversized;
    ASSERT_EQ(fs::file_size(appearance), 1025u);
    shell::AppearanceSettings ignored;
    EXPECT_FALSE(shell::loadAppearanceSettings(appearance, ignored));
    EXPECT_EQ(ignored, shell::AppearanceSettings{});
    ASSERT_TRUE(fs::remove(appearance));
    ASSERT_TRUE(shell::saveAppearanceSettings(appearance, look));

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

    write({{"version", 1}, {"playback", {{"musicVolume", 0.2}}}});
    start = shell::resolveStartupSettings(file, appearance, local, 0.4);
    EXPECT_TRUE(start.fromSettingsFile);
    EXPECT_EQ(start.settings.musicVolume, 0.2);
    EXPECT_EQ(start.settings.theme, "system");
}

TEST_F(SettingsTest, LocalStoresAndTheChangeWatch) {
    const fs::path path = shell::FileLocalSettings::standardPath();
    ASSERT_EQ(path, dataRoot / "local-settings.json");
    {
        shell::FileLocalSettings store(path);
        EXPECT_FALSE(store.readLocalSetting("mediaFolder").has_value());
        ASSERT_TRUE(store.writeLocalSetting("mediaFolder", std::string("/srv/media")));
        ASSERT_TRUE(store.writeLocalSetting("remoteServerEnabled", false));
        ASSERT_TRUE(store.writeLocalSetting("fillerVolume", 0.1 + 0.2));
    }
    shell::FileLocalSettings reopened(path);
    EXPECT_EQ(shell::localSettingText(reopened.readLocalSetting("mediaFolder")), "/srv/media");
    EXPECT_EQ(shell::localSettingBool(reopened.readLocalSetting("remoteServerEnabled")), false);
    EXPECT_EQ(shell::localSettingNumber(reopened.readLocalSetting("fillerVolume")), 0.1 + 0.2);

    std::ofstream(path, std::ios::trunc) << "{broken";
    shell::FileLocalSettings damaged(path);
    EXPECT_FALSE(damaged.writeLocalSetting("mediaFolder", std::string("/x")));
    EXPECT_EQ(readWhole(path), "{broken");

    shell::MemoryLocalSettings memory;
    memory.refuseWrites = true;
    EXPECT_FALSE(memory.writeLocalSetting("proMode", true));
    EXPECT_FALSE(memory.readLocalSetting("proMode").has_value());

    shell::SettingsFileWatch watch(file);
    EXPECT_FALSE(watch.changed());
    write({{"version", 1}});
    EXPECT_TRUE(watch.changed());
    EXPECT_FALSE(watch.changed());
    // A same-size rewrite through a rename is seen as well.
    const fs::path other = dataRoot / "tamo.json.new";
    std::ofstream(other) << Json{{"version", 2}}.dump();
    fs::rename(other, file);
    EXPECT_TRUE(watch.changed());
    fs::remove(file);
    EXPECT_TRUE(watch.changed());
}

}  // namespace
}  // namespace tamo::test
