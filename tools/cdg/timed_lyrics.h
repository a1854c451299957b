#pragma once

#include "lyric_line.h"

#include <string>
#include <string_view>
#include <vector>

namespace tamo::cdg {

// Reads the plain timed lyric format, one entry a line:
//
//     SECONDS<TAB>text of the line
//
// SECONDS is 12.5 or 1:02.25 (minutes and seconds); a tab or spaces separate
// it from the text. Blank lines and lines starting with '#' are skipped.
// Times never go down. A line is sung until the next entry's time, but at
// most one second plus a quarter second per character, so an instrumental
// break doesn't drag the highlight out; an entry with a time and no text
// only ends the line before it.
//
// Returns false with a message naming the line number on malformed input.
bool parseTimedLyrics(std::string_view text, std::vector<LyricLine>& lines, std::string& error);

}  // namespace tamo::cdg
