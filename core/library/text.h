#pragma once

#include <string>
#include <string_view>

namespace tamo::core {

// Byte-level text helpers: the core keeps UTF-8 in byte strings and only
// ever trims C-locale white space and lower-cases ASCII A to Z.
bool isSpaceByte(char c);
std::string trimText(std::string_view text);
std::string asciiLower(std::string_view text);

}  // namespace tamo::core
