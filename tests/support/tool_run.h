#pragma once

#include <string>

namespace tamo::test {

// What a console program printed on standard output and how it ended.
struct ToolRun {
    int status = -1;  // exit status, or -1 when it did not exit normally
    std::string out;
};

// Runs one shell command line and collects its standard output; add
// "2>&1" to the line to collect standard error as well.
ToolRun runCommand(const std::string& commandLine);

// A path quoted for the shell.
std::string shellQuote(const std::string& text);

}  // namespace tamo::test
