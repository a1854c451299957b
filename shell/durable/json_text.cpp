#include "json_text.h"

#include <array>
#include <charconv>

namespace tamo::shell {
namespace {

// Length of the well-formed UTF-8 sequence at text[i], or 0.
std::size_t utf8SequenceLength(std::string_view text, std::size_t i) {
    const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(text[k]); };
    const unsigned char lead = byte(i);
    const std::size_t left = text.size() - i;
    const auto continuation = [&](std::size_t k) { return (byte(k) & 0xC0) == 0x80; };
    if (lead >= 0xC2 && lead <= 0xDF) return left >= 2 && continuation(i + 1) ? 2 : 0;
    if (lead >= 0xE0 && lead <= 0xEF) {
        if (left < 3 || !continuation(i + 1) || !continuation(i + 2)) return 0;
        const unsigned char second = byte(i + 1);
        if (lead == 0xE0 && second < 0xA0) return 0;   // overlong
        if (lead == 0xED && second >= 0xA0) return 0;  // surrogate
        return 3;
    }
    if (lead >= 0xF0 && lead <= 0xF4) {
        if (left < 4 || !continuation(i + 1) || !continuation(i + 2) || !continuation(i + 3)) return 0;
        const unsigned char second = byte(i + 1);
        if (lead == 0xF0 && second < 0x90) return 0;  // overlong
        if (lead == 0xF4 && second >= 0x90) return 0;  // above U+10FFFF
        return 4;
    }
    return 0;
}

}  // namespace

void appendJsonText(std::string& out, std::string_view text) {
    static constexpr char hex[] = "0123456789abcdef";
    out.push_back('"');
    std::size_t i = 0;
    while (i < text.size()) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c >= 0x80) {
            const std::size_t length = utf8SequenceLength(text, i);
            if (length == 0) {
                out.append("\xEF\xBF\xBD");
                ++i;
            } else {
                out.append(text.substr(i, length));
                i += length;
            }
            continue;
        }
        switch (c) {
            case '"': out.append("\\\""); break;
            case '\\': out.append("\\\\"); break;
            case '\b': out.append("\\b"); break;
            case '\f': out.append("\\f"); break;
            case '\n': out.append("\\n"); break;
            case '\r': out.append("\\r"); break;
            case '\t': out.append("\\t"); break;
            default:
                if (c < 0x20) {
                    out.append("\\u00");
                    out.push_back(hex[c >> 4]);
                    out.push_back(hex[c & 0xF]);
                } else {
                    out.push_back(static_cast<char>(c));
                }
        }
        ++i;
    }
    out.push_back('"');
}

void appendJsonDouble(std::string& out, double value) {
    std::array<char, 32> buffer{};
    const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value);
    out.append(buffer.data(), result.ptr);
}

void appendJsonInteger(std::string& out, std::int64_t value) {
    std::array<char, 24> buffer{};
    const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value);
    out.append(buffer.data(), result.ptr);
}

bool jsonNestingWithin(std::string_view text, int limit) {
    int depth = 0;
    bool inString = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (inString) {
            if (c == '\\') ++i;
            else if (c == '"') inString = false;
            continue;
        }
        if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++depth > limit) return false;
        } else if (c == ']' || c == '}') {
            --depth;
        }
    }
    return true;
}

}  // namespace tamo::shell
