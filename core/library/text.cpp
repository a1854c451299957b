#include "text.h"

#include <cctype>

namespace tamo::core {

bool isSpaceByte(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

std::string trimText(std::string_view text) {
    std::size_t begin = 0;
    std::size_t end = text.size();
    while (begin < end && isSpaceByte(text[begin])) ++begin;
    while (end > begin && isSpaceByte(text[end - 1])) --end;
    return std::string(text.substr(begin, end - begin));
}

std::string asciiLower(std::string_view text) {
    std::string out(text);
    for (char& c : out) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return out;
}

}  // namespace tamo::core
