#include "file_test_support.h"
#include "fixed_paths.h"
#include "temp_dir.h"

#include <gtest/gtest.h>

namespace tamo::core {
namespace {
namespace fs = std::filesystem;
using test::ScopedEnv;

TEST(FixedPaths, HangOnTheDataRoot) {
    const auto all = [] {
        return std::vector<fs::path>{recoveryFilePath(), recoveryBackupPath(), appearanceSettingsPath(),
                                     MediaIndexCachePath(), recoveryArchivesPath()};
    };
    {
        ScopedEnv xdg("XDG_DATA_HOME", "/xdg/data");
        ScopedEnv home("HOME", "/home/host");
        const std::string root = "/xdg/data/Quillon/Tamo/";
        EXPECT_EQ(all(), (std::vector<fs::path>{root + "event-recovery.json", root + "event-recovery.json.bak",
                                                root + "appearance-settings.json", root + "media-index-cache.tsv",
                                                root + "recovery-archives"}));
    }
    for (const char* unusable : {"", "relative/data"}) {
        ScopedEnv xdg("XDG_DATA_HOME", unusable);
        ScopedEnv home("HOME", "/home/host");
        EXPECT_EQ(MediaIndexCachePath(), "/home/host/.local/share/Quillon/Tamo/media-index-cache.tsv");
    }
    ScopedEnv xdg("XDG_DATA_HOME", nullptr);
    ScopedEnv home("HOME", "");
    EXPECT_EQ(dataRootPath(), fs::path());
    EXPECT_EQ(all(), std::vector<fs::path>(5));
}

TEST(FixedPaths, SettingsFileFollowsTheSourceTreeOfTheProgram) {
    test::TempDir dir;
    const fs::path tree = dir / "checkout";
    dir.write("checkout/CMakeLists.txt", "project(x)");
    fs::create_directories(tree / "core");
    const fs::path program = dir.write("checkout/build/bin/tamo");

    ScopedEnv xdg("XDG_DATA_HOME", nullptr);
    {
        ScopedEnv home("HOME", "/home/host");
        // Without "platform" it is not a source tree.
        EXPECT_EQ(settingsFilePathFor(program), "/home/host/.local/share/Quillon/Tamo/tamo.json");
        fs::create_directories(tree / "platform");
        EXPECT_EQ(settingsFilePathFor(program), tree / "tamo.json");
        EXPECT_EQ(settingsFilePathFor(tree / "tamo"), tree / "tamo.json");
    }
    // No markers and no data root: no settings file at all.
    ScopedEnv home("HOME", nullptr);
    fs::remove(tree / "CMakeLists.txt");
    fs::create_directory(tree / "CMakeLists.txt");
    EXPECT_EQ(settingsFilePathFor(program), fs::path());
    EXPECT_EQ(settingsFilePathFor(""), fs::path());
}

}  // namespace
}  // namespace tamo::core
