#include "timed_lyrics.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <optional>

namespace tamo::cdg {
namespace {

struct Entry {
    double time = 0.0;
    std::string text;
};

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

std::string_view trim(std::string_view s) {
    while (!s.empty() && isBlank(s.front())) s.remove_prefix(1);
    while (!s.empty() && isBlank(s.back())) s.remove_suffix(1);
    return s;
}

std::optional<double> parseNumber(std::string_view s) {
    if (s.empty() || !std::all_of(s.begin(), s.end(), [](char c) { return (c >= '0' && c <= '9') || c == '.'; }))
        return std::nullopt;
    double value = 0.0;
    const auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), value);
    if (ec != std::errc() || end != s.data() + s.size() || !std::isfinite(value)) return std::nullopt;
    return value;
}

// "12.5" or "1:02.25"; no sign, so no negative times.
std::optional<double> parseTime(std::string_view s) {
    const std::size_t colon = s.find(':');
    if (colon == std::string_view::npos) return parseNumber(s);
    const std::string_view minutes = s.substr(0, colon);
    if (minutes.find('.') != std::string_view::npos) return std::nullopt;
    const auto m = parseNumber(minutes);
    const auto sec = parseNumber(s.substr(colon + 1));
    if (!m || !sec || *sec >= 60.0) return std::nullopt;
    return *m * 60.0 + *sec;
}

}  // namespace

bool parseTimedLyrics(std::string_view text, std::vector<LyricLine>& lines, std::string& error) {
    std::vector<Entry> entries;
    std::size_t lineNumber = 0;
    while (!text.empty()) {
        ++lineNumber;
        const std::size_t newline = text.find('\n');
        std::string_view raw = text.substr(0, newline);
        text.remove_prefix(newline == std::string_view::npos ? text.size() : newline + 1);

        const std::string_view content = trim(raw);
        if (content.empty() || content.front() == '#') continue;
        std::size_t split = 0;
        while (split < content.size() && !isBlank(content[split])) ++split;
        const std::string_view timeText = content.substr(0, split);
        const auto time = parseTime(timeText);
        const std::string where = "line " + std::to_string(lineNumber) + ": ";
        if (!time) {
            error = where + "\"" + std::string(timeText) + "\" is not a time in seconds (like 12.5 or 1:02.25)";
            return false;
        }
        if (!entries.empty() && *time < entries.back().time) {
            error = where + "time " + std::string(timeText) + " is earlier than the line before";
            return false;
        }
        entries.push_back({*time, std::string(trim(content.substr(split)))});
    }

    std::vector<LyricLine> result;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        if (entries[i].text.empty()) continue;
        const double longest = 1.0 + 0.25 * static_cast<double>(entries[i].text.size());
        double end = entries[i].time + longest;
        if (i + 1 < entries.size()) end = std::min(end, entries[i + 1].time);
        result.push_back(timeLyricLine(entries[i].text, entries[i].time, end));
    }
    if (result.empty()) {
        error = "no timed lyric lines found (expected lines like \"12.5<TAB>text\")";
        return false;
    }
    lines = std::move(result);
    return true;
}

}  // namespace tamo::cdg
