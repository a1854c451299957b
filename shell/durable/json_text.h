#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tamo::shell {

// Hand-written JSON for the durable files. Strings are escaped as JSON
// requires; a byte sequence that is not UTF-8 (a file name on Linux may be
// anything) is written as U+FFFD, so the file always parses again and only
// that one field stops matching instead of the whole file being lost.
void appendJsonText(std::string& out, std::string_view text);
// Shortest form that reads back as the same double, so no value drifts over
// a save and a load. Callers pass finite values only.
void appendJsonDouble(std::string& out, double value);
void appendJsonInteger(std::string& out, std::int64_t value);

// Deepest nesting of arrays and objects in text, stopping once it passes
// limit. The parser is fed only texts within a small depth, so a file of
// millions of brackets can't exhaust the stack anywhere later on.
bool jsonNestingWithin(std::string_view text, int limit);

}  // namespace tamo::shell
