#include "cdg_decoder.h"
#include "temp_dir.h"
#include "tool_run.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>

namespace tamo::cdg {
namespace {

namespace fs = std::filesystem;

struct ToolRun {
    int status = -1;
    std::string out;
    std::string err;
};

std::string readFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// Runs the real tamo-cdg program from the test's folder.
ToolRun runTool(const test::TempDir& dir, const std::string& arguments) {
    const fs::path err = dir / "stderr.txt";
    const test::ToolRun run = test::runCommand("cd " + test::shellQuote(dir.path().string()) + " && " +
                                               test::shellQuote(TAMO_CDG_TOOL) + " " + arguments + " 2>" +
                                               test::shellQuote(err.string()));
    return {run.status, run.out, readFile(err)};
}

const char* const lyrics = "# two lines\n1.0\tHello tamo\n3.5\tSing along now\n6\n";

TEST(CdgTool, WriteInfoAndRenderAgreeWithTheDecoder) {
    test::TempDir dir;
    dir.write("song.txt", lyrics);
    ToolRun run = runTool(dir, "write song.txt --out song.cdg --title 'A Song' --duration=20");
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.out.find("wrote song.cdg: 2 lines, 6000 packets"), std::string::npos) << run.out;

    run = runTool(dir, "info song.cdg");
    ASSERT_EQ(run.status, 0) << run.err;
    for (const char* line : {"packets: 6000\n", "duration: 20.000 s\n", "30 load palette, low", "38 tile block XOR"})
        EXPECT_NE(run.out.find(line), std::string::npos) << line << " in " << run.out;

    // Frames come out in time order, each the decoder's picture at that time.
    run = runTool(dir, "render song.cdg --at 4,0.5,2.25 --out frames --format ppm");
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, "frames/song-0.500.ppm\nframes/song-2.250.ppm\nframes/song-4.000.ppm\n");
    core::CdgDecoder decoder;
    ASSERT_TRUE(decoder.load((dir / "song.cdg").string()));
    const std::string header = "P6\n300 216\n255\n";
    for (const char* at : {"0.500", "2.250", "4.000"}) {
        ASSERT_TRUE(decoder.renderAt(std::stod(at)));
        std::string expected = header;
        for (std::size_t i = 0; i < decoder.frame().size(); i += 4)
            expected.append(reinterpret_cast<const char*>(&decoder.frame()[i]), 3);
        EXPECT_TRUE(readFile(dir / "frames" / ("song-" + std::string(at) + ".ppm")) == expected) << at;
    }

    // PNG by default: signature, then the header chunk with the size.
    run = runTool(dir, "render song.cdg --at 2.25 --out frames");
    ASSERT_EQ(run.status, 0) << run.err;
    const std::string png = readFile(dir / "frames" / "song-2.250.png");
    EXPECT_EQ(png.substr(0, 24), std::string("\x89PNG\r\n\x1a\n\0\0\0\x0dIHDR\0\0\x01\x2c\0\0\0\xd8", 24));
}

TEST(CdgTool, BadArgumentsAndFilesFailWithAMessage) {
    test::TempDir dir;
    dir.write("song.txt", lyrics);
    dir.write("bad.txt", "1.0\tfine\nabc\tnot a time\n");
    dir.write("short.cdg", std::string(23, '\0'));
    dir.write("a-file", "x");
    ASSERT_EQ(runTool(dir, "write song.txt --out song.cdg").status, 0);

    const struct {
        const char* arguments;
        int status;
        const char* message;
    } cases[] = {
        {"", 2, "Usage:"},
        {"frobnicate", 2, "unknown command \"frobnicate\""},
        {"render song.cdg --out frames", 2, "missing --at"},
        {"render song.cdg --at 1 --out frames extra", 2, "unexpected argument \"extra\""},
        {"render song.cdg --at -1 --out frames", 2, "\"-1\" is not a time"},
        {"render song.cdg --at 1,,2 --out frames", 2, "\"\" is not a time"},
        {"render song.cdg --at 1 --out frames --format gif", 2, "--format must be png or ppm"},
        {"render song.cdg --at 1 --out", 2, "--out needs a value"},
        {"render missing.cdg --at 1 --out frames", 1, "cannot load missing.cdg: no such file"},
        {"render song.cdg --at 1 --out a-file", 1, "cannot create folder"},
        {"info", 2, "missing FILE.cdg"},
        {"info short.cdg", 1, "shorter than one 24-byte packet"},
        {"info .", 1, "not a regular file"},
        {"write song.txt --out x.cdg --rows 9", 2, "--rows must be 1 to 5"},
        {"write bad.txt --out x.cdg", 1, "bad.txt: line 2:"},
        {"write song.txt --out no-such-folder/x.cdg", 1, "cannot write no-such-folder/x.cdg"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.arguments);
        const ToolRun run = runTool(dir, c.arguments);
        EXPECT_EQ(run.status, c.status);
        EXPECT_NE(run.err.find(c.message), std::string::npos) << run.err;
        EXPECT_TRUE(run.out.empty()) << run.out;
    }
    EXPECT_FALSE(fs::exists(dir / "x.cdg"));
    EXPECT_FALSE(fs::exists(dir / "frames"));

    const ToolRun help = runTool(dir, "render --help");
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("tamo-cdg render FILE.cdg --at SECONDS"), std::string::npos);
}

}  // namespace
}  // namespace tamo::cdg
