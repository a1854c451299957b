#include "media_kinds.h"

#include "text.h"

#include <array>

namespace tamo::core {

bool isMediaExtension(std::string_view extension) {
    static constexpr std::array<std::string_view, 6> kinds{".m4v", ".mkv", ".mov", ".mp3", ".mp4", ".webm"};
    if (extension.size() > 5) return false;
    const std::string lower = asciiLower(extension);
    for (std::string_view kind : kinds) {
        if (lower == kind) return true;
    }
    return false;
}

bool isGraphicsExtension(std::string_view extension) {
    return extension.size() == 4 && asciiLower(extension) == ".cdg";
}

bool isMediaFile(const std::filesystem::path& path) {
    return isMediaExtension(path.extension().native());
}

bool isGraphicsFile(const std::filesystem::path& path) {
    return isGraphicsExtension(path.extension().native());
}

}  // namespace tamo::core
