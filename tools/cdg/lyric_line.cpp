#include "lyric_line.h"

#include <algorithm>

namespace tamo::cdg {

LyricLine timeLyricLine(std::string_view text, double start, double end) {
    std::vector<std::string_view> pieces;
    std::size_t total = 0;
    for (std::size_t i = 0; i < text.size();) {
        const auto isBlank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
        while (i < text.size() && isBlank(text[i])) ++i;
        const std::size_t from = i;
        while (i < text.size() && !isBlank(text[i])) ++i;
        if (i > from) {
            pieces.push_back(text.substr(from, i - from));
            total += i - from;
        }
    }

    LyricLine line;
    end = std::max(end, start);
    std::size_t done = 0;
    for (const std::string_view piece : pieces) {
        const double from = start + (end - start) * static_cast<double>(done) / static_cast<double>(total);
        done += piece.size();
        const double to = start + (end - start) * static_cast<double>(done) / static_cast<double>(total);
        line.words.push_back({std::string(piece), from, to});
    }
    return line;
}

}  // namespace tamo::cdg
