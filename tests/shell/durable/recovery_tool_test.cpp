#include "durable_fixture.h"
#include "recovery_writer.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>

#ifdef TAMO_RECOVERY_TOOL

namespace tamo::test {
namespace {

namespace fs = std::filesystem;

struct ToolRun {
    int exitCode = -1;
    std::string out;
};

ToolRun runTool(const std::string& arguments) {
    ToolRun run;
    const std::string command = std::string("'") + TAMO_RECOVERY_TOOL + "' " + arguments + " 2>/dev/null";
    FILE* pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr) return run;
    char buffer[4096];
    std::size_t got = 0;
    while ((got = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) run.out.append(buffer, got);
    const int status = ::pclose(pipe);
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

std::set<std::string> listing(const fs::path& root) {
    std::set<std::string> names;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        names.insert(entry.path().string() + ":" + std::to_string(entry.is_regular_file() ? entry.file_size() : 0));
    }
    return names;
}

class RecoveryToolTest : public DurableTest {};

TEST_F(RecoveryToolTest, ReportsWhatTheProgramWouldRestoreAndWritesNothing) {
    const std::string song = addMedia("Artist - Song.mp3");
    addMedia("Artist - Other.mp4");
    core::EventCore event;
    loadLibrary(event);
    const std::int32_t ann = event.addSinger("Ann");
    const std::int32_t bob = event.addSinger("Bob");
    event.enqueueForSinger(event.songByPath(song)->id, ann);
    event.enqueueForSinger(event.songByPath(song)->id, bob);
    event.enqueueForSinger(event.songs()[0].id, ann);
    ASSERT_TRUE(event.advanceForSinger(bob));
    event.setPlaybackStatus(core::PlaybackStatus::Playing);
    const fs::path file = temp / "copy.json";
    ASSERT_TRUE(shell::WriteEventRecovery(shell::RecoveryEventView::of(event), media.string(), 90000, {{ann, "Away"}},
                                          shell::RecoveryFiles{file, temp / "copy.json.bak"}));
    const auto before = listing(temp.path());

    const fs::path cache = temp / "no-cache.tsv";
    ToolRun run = runTool("read '" + file.string() + "' --json --media-cache '" + cache.string() + "'");
    ASSERT_EQ(run.exitCode, 0) << run.out;
    const auto json = nlohmann::json::parse(run.out);
    EXPECT_EQ(json["status"], 1);
    EXPECT_EQ(json["statusName"], "complete");
    EXPECT_EQ(json["mediaFolder"], media.string());
    EXPECT_EQ(json["playbackPositionMs"], 90000);
    EXPECT_EQ(json["playbackStatus"], "paused");
    EXPECT_EQ(json["singers"], 2);
    EXPECT_EQ(json["singerStates"], 1);
    EXPECT_EQ(json["queueEntries"], 2);
    EXPECT_EQ(json["historyEntries"], 0);
    EXPECT_EQ(json["currentPerformance"], true);

    fs::remove(song);
    run = runTool("read '" + file.string() + "'");
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_NE(run.out.find("status: 2 partial\n"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("queue entries: 1\n"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("current performance: no\n"), std::string::npos) << run.out;

    std::ofstream(temp / "bad.json") << "{\"version\":3.5}";
    run = runTool("read '" + (temp / "bad.json").string() + "' --json");
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(nlohmann::json::parse(run.out)["status"], 5);
    fs::remove(temp / "bad.json");

    EXPECT_EQ(runTool("read").exitCode, 2);
    EXPECT_EQ(runTool("--help").exitCode, 0);
    auto after = listing(temp.path());
    EXPECT_EQ(after.size(), before.size() - 1);  // only the removed song
    EXPECT_FALSE(fs::exists(cache));
}

}  // namespace
}  // namespace tamo::test

#endif
