#include "filename_metadata.h"

#include "text.h"

#include <cctype>

namespace tamo::core {
namespace {

// A leading disc or track code such as "SC-1234" or "1234". Letters and
// digits without punctuation ("SC1234") are read as an artist on purpose.
bool isDiscCode(std::string_view part) {
    const std::string code = trimText(part);
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

}  // namespace

std::vector<std::string> splitAndTrim(std::string_view text, std::string_view separator) {
    std::vector<std::string> parts;
    if (separator.empty()) {
        parts.push_back(trimText(text));
        return parts;
    }
    std::size_t start = 0;
    for (;;) {
        const std::size_t at = text.find(separator, start);
        if (at == std::string_view::npos) break;
        parts.push_back(trimText(text.substr(start, at - start)));
        start = at + separator.size();
    }
    parts.push_back(trimText(text.substr(start)));
    return parts;
}

FilenameMetadata metadataFromParts(const std::vector<std::string>& parts, std::string_view separator) {
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
    std::string artist = trimText(parts[artistIndex]);
    if (artist.empty() || title.empty()) return {};
    return {std::move(artist), std::move(title)};
}

FilenameMetadata parseFilenameMetadata(std::string_view stem) {
    const std::string trimmed = trimText(stem);
    if (trimmed.empty()) return {};

    for (std::string_view separator : {" - ", " -- ", " / ", " | "}) {
        FilenameMetadata parsed = metadataFromParts(splitAndTrim(trimmed, separator), separator);
        if (!parsed.title.empty()) return parsed;
    }

    // "Song Name by Singer" reads title first; the position comes from a
    // lower-cased copy so that " BY " counts too, the pieces keep capitals.
    const std::size_t by = asciiLower(trimmed).find(" by ");
    if (by != std::string::npos) {
        std::string title = trimText(std::string_view(trimmed).substr(0, by));
        std::string artist = trimText(std::string_view(trimmed).substr(by + 4));
        if (!title.empty() && !artist.empty()) return {std::move(artist), std::move(title)};
    }

    for (std::string_view separator : {"_", "-"}) {
        const auto parts = splitAndTrim(trimmed, separator);
        if (parts.size() != 2) continue;
        FilenameMetadata parsed = metadataFromParts(parts, separator);
        if (!parsed.title.empty()) return parsed;
    }
    return {"", trimmed};
}

}  // namespace tamo::core
