#pragma once

#include "records.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace tamo::core {

// Hand-written JSON for the operations interface. Strings are escaped byte by
// byte and every other byte passes through, so UTF-8 arrives untouched.
void appendJsonString(std::string& out, std::string_view text);
std::string jsonString(std::string_view text);
// Six significant digits, as a default output stream writes them.
void appendJsonFloat(std::string& out, double value);
void appendJsonSong(std::string& out, const Song& song);
void appendJsonEntry(std::string& out, const QueueEntry& entry);
void appendJsonHistoryEntry(std::string& out, const HistoryEntry& entry);

}  // namespace tamo::core
