#include "temp_dir.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>

namespace tamo::test {
namespace {

struct ToolRun {
    int status = -1;
    std::string output;
};

ToolRun runLibrary(const std::string& arguments) {
    const std::string command = std::string(TAMO_BIN_DIR) + "/tamo-library " + arguments + " 2>&1";
    FILE* pipe = popen(command.c_str(), "r");
    ToolRun run;
    if (pipe == nullptr) return run;
    char buffer[4096];
    for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) run.output.append(buffer, n);
    const int raw = pclose(pipe);
    run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    return run;
}

TEST(TamoLibrary, IndexesSearchesAndPreflightsARealFolder) {
    TempDir dir;
    dir.write("media/Queen - Love Of My Life.mp3");
    dir.write("media/Queen - Love Of My Life.cdg");
    dir.write("media/Abba - Gloves Off.mp3");
    dir.write("media/sub/Blur - Song 2.mp4");
    const std::string media = "'" + (dir / "media").string() + "'";
    const std::string cache = "--cache '" + (dir / "cache.tsv").string() + "'";

    ToolRun run = runLibrary("index " + media + " " + cache);
    EXPECT_EQ(run.status, 0) << run.output;
    EXPECT_NE(run.output.find('3'), std::string::npos) << run.output;

    // "love" also posts "Gloves": the index matches inside longer words,
    // exactly as the plain filter does.
    run = runLibrary("search " + media + " " + cache + " love");
    EXPECT_EQ(run.status, 0);
    EXPECT_NE(run.output.find("Gloves Off.mp3"), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("Love Of My Life.mp3"), std::string::npos) << run.output;
    EXPECT_EQ(runLibrary("search " + media + " " + cache + " --no-word-cache love").output, run.output);

    run = runLibrary("preflight " + media + " --no-cache");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.output.rfind("Preflight found 1 issue across 3 songs\n", 0), 0U) << run.output;
    EXPECT_NE(run.output.find("Abba - Gloves Off.mp3\tMissing CDG"), std::string::npos) << run.output;

    run = runLibrary("index '" + (dir / "nowhere").string() + "' --no-cache");
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.output.find("Could not resolve media folder"), std::string::npos) << run.output;
    EXPECT_EQ(runLibrary("frobnicate").status, 2);
}

}  // namespace
}  // namespace tamo::test
