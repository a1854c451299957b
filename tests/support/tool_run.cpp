#include "tool_run.h"

#include <cstdio>
#include <sys/wait.h>

namespace tamo::test {

ToolRun runCommand(const std::string& commandLine) {
    ToolRun run;
    FILE* pipe = ::popen(commandLine.c_str(), "r");
    if (pipe == nullptr) return run;
    char buffer[65536];
    for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) run.out.append(buffer, n);
    const int raw = ::pclose(pipe);
    run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    return run;
}

std::string shellQuote(const std::string& text) {
    std::string quoted = "'";
    for (char c : text) {
        if (c == '\'') {
            quoted += "'\\''";
        } else {
            quoted.push_back(c);
        }
    }
    quoted.push_back('\'');
    return quoted;
}

}  // namespace tamo::test
