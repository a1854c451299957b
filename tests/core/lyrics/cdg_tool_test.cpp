#include "cdg_decoder.h"
#include "temp_dir.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <sys/wait.h>

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

std::string quoted(const fs::path& path) { return "'" + path.string() + "'"; }

// Runs the real tamo-cdg program from the test's folder.
ToolRun runTool(const test::TempDir& dir, const std::string& arguments) {
    const fs::path out = dir / "stdout.txt";
    const fs::path err = dir / "stderr.txt";
    const std::string command = "cd " + quoted(dir.path()) + " && " + quoted(TAMO_CDG_TOOL) + " " + arguments +
                                " >" + quoted(out) + " 2>" + quoted(err);
    const int raw = std::system(command.c_str());
    return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, readFile(out), readFile(err)};
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
    EXPECT_NE(run.out.find("packets: 6000\n"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("duration: 20.000 s\n"), std::string::npos);
    EXPECT_NE(run.out.find("30 load palette, low"), std::string::npos);
    EXPECT_NE(run.out.find("38 tile block XOR"), std::string::npos);

    run = runTool(dir, "render song.cdg --at 4,0.5,2.25 --out frames --format ppm");
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, "frames/song-0.500.ppm\nframes/song-2.250.ppm\nframes/song-4.000.ppm\n");
    core::CdgDecoder decoder;
    ASSERT_TRUE(decoder.load((dir / "song.cdg").string()));
    for (const char* at : {"0.500", "2.250", "4.000"}) {
        SCOPED_TRACE(at);
        const std::string ppm = readFile(dir / "frames" / ("song-" + std::string(at) + ".ppm"));
        const std::string header = "P6\n300 216\n255\n";
        ASSERT_EQ(ppm.size(), header.size() + 300 * 216 * 3);
        EXPECT_EQ(ppm.substr(0, header.size()), header);
        ASSERT_TRUE(decoder.renderAt(std::stod(at)));
        std::string expected;
        for (std::size_t i = 0; i < decoder.frame().size(); i += 4)
            expected.append(reinterpret_cast<const char*>(&decoder.frame()[i]), 3);
        EXPECT_TRUE(ppm.substr(header.size()) == expected);
    }

    // PNG by default: signature, then the header chunk with the size.
    run = runTool(dir, "render song.cdg --at 2.25 --out frames");
    ASSERT_EQ(run.status, 0) << run.err;
    const std::string png = readFile(dir / "frames" / "song-2.250.png");
    ASSERT_GT(png.size(), 300u * 216 * 3);
    EXPECT_EQ(png.substr(0, 16), std::string("\x89PNG\r\n\x1a\n\0\0\0\x0dIHDR", 16));
    EXPECT_EQ(png.substr(16, 8), std::string("\0\0\x01\x2c\0\0\0\xd8", 8));
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
        {"render song.cdg --at 1 --at 2 --out frames", 2, "--at given twice"},
        {"render song.cdg --at 1 --out", 2, "--out needs a value"},
        {"render missing.cdg --at 1 --out frames", 1, "cannot load missing.cdg: no such file"},
        {"render song.cdg --at 1 --out a-file", 1, "cannot create folder"},
        {"info", 2, "missing FILE.cdg"},
        {"info --bogus x song.cdg", 2, "unknown option --bogus"},
        {"info short.cdg", 1, "shorter than one 24-byte packet"},
        {"info .", 1, "not a regular file"},
        {"write song.txt", 2, "missing --out"},
        {"write song.txt --out x.cdg --rows 9", 2, "--rows must be 1 to 5"},
        {"write song.txt --out x.cdg --duration soon", 2, "--duration"},
        {"write bad.txt --out x.cdg", 1, "bad.txt: line 2:"},
        {"write missing.txt --out x.cdg", 1, "cannot read missing.txt"},
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

    for (const char* help : {"--help", "render --help", "write -h"}) {
        const ToolRun run = runTool(dir, help);
        EXPECT_EQ(run.status, 0) << help;
        EXPECT_NE(run.out.find("tamo-cdg render FILE.cdg --at SECONDS"), std::string::npos) << help;
    }
}

}  // namespace
}  // namespace tamo::cdg
