#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tamo::core {

// Artist and title read from a file stem. Both empty means nothing parsed.
struct FilenameMetadata {
    std::string artist;
    std::string title;
};

FilenameMetadata parseFilenameMetadata(std::string_view stem);
std::vector<std::string> splitAndTrim(std::string_view text, std::string_view separator);
FilenameMetadata metadataFromParts(const std::vector<std::string>& parts, std::string_view separator);

}  // namespace tamo::core
