// tamo-ops: the operations console. One in-memory event for the whole run;
// one JSON request per input line, one "STATUS<TAB>BODY" line out.

#include "operation_request.h"
#include "operator_history.h"

#include <cstdio>
#include <cstring>
#include <iostream>
#include <string>

namespace {

constexpr const char* kHelp =
    "Usage: tamo-ops [--help]\n"
    "\n"
    "Runs one karaoke event in memory and drives it with JSON requests.\n"
    "Each line of standard input is one request, shaped like the body of\n"
    "POST /api/operation, for example:\n"
    "  {\"operation\":\"add_song\",\"path\":\"/music/A - B.mp3\",\"title\":\"\",\"artist\":\"\",\"format\":\"\"}\n"
    "  {\"operation\":\"enqueue\",\"parameters\":{\"singer\":\"Ana\",\"songId\":1}}\n"
    "  {\"operation\":\"state\"}\n"
    "For each input line exactly one line is written: the HTTP status in\n"
    "decimal, a tab, and the response body exactly as the HTTP API sends it.\n"
    "A line that is not a JSON object answers 500 with\n"
    "{\"status\":\"error\",\"message\":\"Remote queue request failed\"}.\n"
    "{\"operation\":\"operations\"} lists every operation name. Output is\n"
    "flushed after each line, so another program can drive it line by line.\n";

constexpr const char* kFailedBody = R"({"status":"error","message":"Remote queue request failed"})";

}  // namespace

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "-h") == 0) {
            std::fputs(kHelp, stdout);
            return 0;
        }
        std::fprintf(stderr, "tamo-ops: unknown argument: %s\n(see tamo-ops --help)\n", argv[i]);
        return 2;
    }

    std::ios::sync_with_stdio(false);
    tamo::core::EventCore core;
    tamo::core::OperatorHistory history;
    std::string line;
    while (std::getline(std::cin, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        int status = 500;
        std::string body = kFailedBody;
        try {
            tamo::shell::OperationReply reply = tamo::shell::runOperationBody(core, &history, line);
            status = reply.httpStatus;
            body = std::move(reply.body);
        } catch (...) {
            // Any failure to read the request answers as the HTTP front would.
        }
        std::cout << status << '\t' << body << '\n';
        std::cout.flush();
    }
    return 0;
}
