#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tamo::cdg {

// A word of a lyric line and the time, in seconds, over which it is sung: its
// characters light up one after another from start to end.
struct LyricWord {
    std::string text;
    double start = 0.0;
    double end = 0.0;
};

struct LyricLine {
    std::vector<LyricWord> words;
};

// Splits text at white space and shares [start, end] between the words in
// proportion to their length, so long words take longer to sing.
LyricLine timeLyricLine(std::string_view text, double start, double end);

}  // namespace tamo::cdg
