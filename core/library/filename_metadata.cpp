#include "filename_metadata.h"

#include "text.h"

#include <cctype>

namespace tamo::core {
namespace {

// The parser runs once per song of a scan, so it works on views of the stem
// and builds only the two strings it returns.
std::string_view trimView(std::string_view text) {
    std::size_t begin = 0;
    std::size_t end = text.size();
    while (begin < end && isSpaceByte(text[begin])) ++begin;
    while (end > begin && isSpaceByte(text[end - 1])) --end;
    return text.substr(begin, end - begin);
}

std::vector<std::string_view> splitViews(std::string_view text, std::string_view separator) {
    std::vector<std::string_view> parts;
    if (separator.empty()) {
        parts.push_back(trimView(text));
        return parts;
    }
    std::size_t start = 0;
    for (;;) {
        const std::size_t at = text.find(separator, start);
        if (at == std::string_view::npos) break;
        parts.push_back(trimView(text.substr(start, at - start)));
        start = at + separator.size();
    }
    parts.push_back(trimView(text.substr(start)));
    return parts;
}

// A leading disc or track code such as "SC-1234" or "1234". Letters and
// digits without punctuation ("SC1234") are read as an artist on purpose.
bool isDiscCode(std::string_view part) {
    const std::string_view code = trimView(part);
    if (code.empty() || code.size() > 18) return false;
    bool digit = false, letter = false, punct = false;
    for (char ch : code) {
        const auto c = static_cast<unsigned char>(ch);
        if (std::isdigit(c)) {
            digit = true;
        } else if (std::isalpha(c)) {
            letter = true;
        } else if (ch == '-' || ch == '.' || ch == '_') {
            punct = true;
        } else {
            return false;
        }
    }
    return digit && (punct || !letter);
}

FilenameMetadata metadataFromViews(const std::vector<std::string_view>& parts, std::string_view separator) {
    if (parts.size() < 2) return {};
    std::size_t artistIndex = 0;
    std::size_t titleIndex = 1;
    if (parts.size() >= 3 && isDiscCode(parts[0])) {
        artistIndex = 1;
        titleIndex = 2;
    }
    std::string title;
    for (std::size_t i = titleIndex; i < parts.size(); ++i) {
        if (parts[i].empty()) continue;
        if (!title.empty()) title.append(separator);
        title.append(parts[i]);
    }
    title = trimText(title);
    const std::string_view artist = trimView(parts[artistIndex]);
    if (artist.empty() || title.empty()) return {};
    return {std::string(artist), std::move(title)};
}

}  // namespace

std::vector<std::string> splitAndTrim(std::string_view text, std::string_view separator) {
    std::vector<std::string> parts;
    for (std::string_view part : splitViews(text, separator)) parts.emplace_back(part);
    return parts;
}

FilenameMetadata metadataFromParts(const std::vector<std::string>& parts, std::string_view separator) {
    return metadataFromViews(std::vector<std::string_view>(parts.begin(), parts.end()), separator);
}

FilenameMetadata parseFilenameMetadata(std::string_view stem) {
    const std::string_view trimmed = trimView(stem);
    if (trimmed.empty()) return {};

    for (std::string_view separator : {" - ", " -- ", " / ", " | "}) {
        if (trimmed.find(separator) == std::string_view::npos) continue;
        FilenameMetadata parsed = metadataFromViews(splitViews(trimmed, separator), separator);
        if (!parsed.title.empty()) return parsed;
    }

    // "Song Name by Singer" reads title first; the position comes from a
    // lower-cased copy so that " BY " counts too, the pieces keep capitals.
    const std::size_t by = asciiLower(trimmed).find(" by ");
    if (by != std::string::npos) {
        std::string_view title = trimView(trimmed.substr(0, by));
        std::string_view artist = trimView(trimmed.substr(by + 4));
        if (!title.empty() && !artist.empty()) return {std::string(artist), std::string(title)};
    }

    for (std::string_view separator : {"_", "-"}) {
        const auto parts = splitViews(trimmed, separator);
        if (parts.size() != 2) continue;
        FilenameMetadata parsed = metadataFromViews(parts, separator);
        if (!parsed.title.empty()) return parsed;
    }
    return {"", std::string(trimmed)};
}

}  // namespace tamo::core
