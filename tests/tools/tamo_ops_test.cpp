#include "temp_dir.h"
#include "tool_run.h"

#include <gtest/gtest.h>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace tamo::test {
namespace {

// Runs tamo-ops with `input` on standard input and returns its output lines.
std::vector<std::string> runOps(const std::string& input) {
    TempDir dir;
    const auto in = dir.write("in.txt", input);
    const ToolRun run = runCommand(std::string(TAMO_BIN_DIR) + "/tamo-ops < " + shellQuote(in.string()));
    EXPECT_EQ(run.status, 0);
    std::vector<std::string> lines;
    std::istringstream stream(run.out);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

TEST(TamoOps, AnswersOneLinePerRequest) {
    const auto lines = runOps(
        "{\"operation\":\"add_song\",\"path\":\"/m/Queen - Bohemian Rhapsody.mp3\",\"title\":\"\",\"artist\":\"\","
        "\"format\":\"\"}\n"
        "{\"operation\":\"enqueue\",\"parameters\":{\"singer\":\"Ana\",\"songId\":1}}\n"
        "{\"name\":\"state\"}\n"
        "not json\n"
        "\n"
        "{\"name\":\"operator_history_undo\"}\n"
        "{\"operation\":\"state\"}\n");
    ASSERT_EQ(lines.size(), 7U);
    EXPECT_EQ(lines[0], "200\t{\"status\":\"ok\",\"songId\":1,\"message\":\"Song added\"}");
    EXPECT_EQ(lines[1], "200\t{\"status\":\"ok\",\"queueId\":1,\"message\":\"Song queued\"}");
    EXPECT_NE(lines[2].find("\"artist\":\"Queen\",\"format\":\"mp3\""), std::string::npos);
    EXPECT_EQ(lines[3], "500\t{\"status\":\"error\",\"message\":\"Remote queue request failed\"}");
    EXPECT_EQ(lines[4], lines[3]);
    EXPECT_EQ(lines[5], "200\t{\"status\":\"ok\",\"changed\":true,\"message\":\"Undo applied\"}");
    EXPECT_NE(lines[6].find("\"singers\":[],\"queue\":[]"), std::string::npos);
    EXPECT_NE(lines[6].find("\"redoCount\":1"), std::string::npos);
}

TEST(TamoOps, SurvivesGarbageAndKeepsTheEvent) {
    std::mt19937 random(7);
    std::string input = "{\"operation\":\"add_song\",\"path\":\"/m/a.mp3\",\"title\":\"A\",\"artist\":\"\",\"format\":\"\"}\n"
                        "{\"operation\":\"enqueue\",\"singer\":\"Ana\",\"songId\":1}\n";
    const std::string pieces[] = {"{", "}", "\"operation\"", ":", "\"enqueue\"", ",", "\"songId\"", "1e999",
                                  "[", "]", "null", "\"\\u0000\"", "\xff", "-", "0", "\"singerId\"", "\"delete_singer\""};
    for (int line = 0; line < 300; ++line) {
        const int length = static_cast<int>(random() % 12);
        for (int i = 0; i < length; ++i) input += pieces[random() % std::size(pieces)];
        input += '\n';
    }
    input += std::string(200000, '[') + "\n";
    input += "{\"operation\":\"enqueue\",\"singer\":\"" + std::string(40000, 'x') + "\",\"songId\":1}\n";
    input += "{\"operation\":\"state\"}\n";
    const auto lines = runOps(input);
    ASSERT_EQ(lines.size(), 2U + 300U + 3U);
    EXPECT_EQ(lines[lines.size() - 2], "400\t{\"status\":\"error\",\"message\":\"Parameter is too large: singer\"}");
    EXPECT_NE(lines.back().find("\"singers\":[{\"id\":1,\"name\":\"Ana\"}"), std::string::npos);
}

}  // namespace
}  // namespace tamo::test
