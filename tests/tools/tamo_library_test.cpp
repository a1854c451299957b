#include "temp_dir.h"
#include "tool_run.h"

#include <gtest/gtest.h>
#include <string>

namespace tamo::test {
namespace {

ToolRun runLibrary(const std::string& arguments) {
    return runCommand(std::string(TAMO_BIN_DIR) + "/tamo-library " + arguments + " 2>&1");
}

TEST(TamoLibrary, IndexesSearchesAndPreflightsARealFolder) {
    TempDir dir;
    dir.write("media/Queen - Love Of My Life.mp3");
    dir.write("media/Queen - Love Of My Life.cdg");
    dir.write("media/Abba - Gloves Off.mp3");
    dir.write("media/sub/Blur - Song 2.mp4");
    const std::string media = shellQuote((dir / "media").string());
    const std::string cache = "--cache " + shellQuote((dir / "cache.tsv").string());

    ToolRun run = runLibrary("index " + media + " " + cache);
    EXPECT_EQ(run.status, 0) << run.out;
    EXPECT_NE(run.out.find('3'), std::string::npos) << run.out;

    // "love" also posts "Gloves": the index matches inside longer words,
    // exactly as the plain filter does.
    run = runLibrary("search " + media + " " + cache + " love");
    EXPECT_EQ(run.status, 0);
    EXPECT_NE(run.out.find("Gloves Off.mp3"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("Love Of My Life.mp3"), std::string::npos) << run.out;
    EXPECT_EQ(runLibrary("search " + media + " " + cache + " --no-word-cache love").out, run.out);

    run = runLibrary("preflight " + media + " --no-cache");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out.rfind("Preflight found 1 issue across 3 songs\n", 0), 0U) << run.out;
    EXPECT_NE(run.out.find("Abba - Gloves Off.mp3\tMissing CDG"), std::string::npos) << run.out;

    run = runLibrary("index " + shellQuote((dir / "nowhere").string()) + " --no-cache");
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.out.find("Could not resolve media folder"), std::string::npos) << run.out;
    EXPECT_EQ(runLibrary("frobnicate").status, 2);
}

}  // namespace
}  // namespace tamo::test
