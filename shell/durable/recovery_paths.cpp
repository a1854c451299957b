#include "recovery_paths.h"

#include <filesystem>
#include <system_error>

namespace tamo::shell {
namespace fs = std::filesystem;

bool isSafeRelativePath(std::string_view relative) {
    if (relative.empty()) return false;
    if (relative.front() == '/' || relative.front() == '\\') return false;
    if (relative.find('\0') != std::string_view::npos) return false;
    std::size_t start = 0;
    while (start <= relative.size()) {
        std::size_t end = relative.find_first_of("/\\", start);
        if (end == std::string_view::npos) end = relative.size();
        if (relative.substr(start, end - start) == "..") return false;
        start = end + 1;
    }
    return true;
}

std::optional<std::string> storedRelativePath(std::string_view songPath, std::string_view folder) {
    if (songPath.empty() || folder.empty()) return std::nullopt;
    try {
        const fs::path song = fs::path(songPath).lexically_normal();
        const fs::path base = fs::path(folder).lexically_normal();
        std::string relative = song.lexically_relative(base).generic_string();
        if (relative.find('\\') != std::string::npos || !isSafeRelativePath(relative)) return std::nullopt;
        return relative;
    } catch (...) {
        return std::nullopt;
    }
}

bool isPlainAbsolutePath(std::string_view path) {
    if (path.empty() || path.front() != '/') return false;
    if (path.size() == 1) return true;
    if (path.back() == '/') return false;
    std::size_t start = 1;
    while (start <= path.size()) {
        std::size_t end = path.find('/', start);
        if (end == std::string_view::npos) end = path.size();
        const std::string_view part = path.substr(start, end - start);
        if (part.empty() || part == "." || part == "..") return false;
        start = end + 1;
    }
    return true;
}

RelativePathMaker::RelativePathMaker(std::string_view folder) : folder_(folder) {
    std::string_view trimmed = folder;
    while (trimmed.size() > 1 && trimmed.back() == '/') trimmed.remove_suffix(1);
    plain_ = isPlainAbsolutePath(trimmed);
    if (plain_) prefix_ = trimmed == "/" ? std::string("/") : std::string(trimmed) + "/";
}

std::optional<std::string> RelativePathMaker::relativeOf(std::string_view songPath) const {
    if (plain_ && isPlainAbsolutePath(songPath)) {
        if (songPath.size() <= prefix_.size() || songPath.substr(0, prefix_.size()) != prefix_) return std::nullopt;
        const std::string_view relative = songPath.substr(prefix_.size());
        if (relative.find('\\') != std::string_view::npos) return std::nullopt;
        return std::string(relative);
    }
    return storedRelativePath(songPath, folder_);
}

std::string joinStoredRelative(std::string_view folder, std::string_view relative) {
    std::string_view base = folder;
    while (base.size() > 1 && base.back() == '/') base.remove_suffix(1);
    if (isPlainAbsolutePath(base) && relative.find('\\') == std::string_view::npos &&
        isPlainAbsolutePath(std::string("/").append(relative))) {
        std::string joined(base);
        if (joined != "/") joined.push_back('/');
        joined.append(relative);
        return joined;
    }
    std::string slashed(relative);
    for (char& c : slashed) {
        if (c == '\\') c = '/';
    }
    return (fs::path(folder) / fs::path(slashed)).lexically_normal().string();
}

std::optional<std::string> canonicalRelativePath(std::string_view songPath, std::string_view folder) {
    if (songPath.empty() || folder.empty()) return std::nullopt;
    try {
        std::error_code error;
        const fs::path song = fs::weakly_canonical(fs::path(songPath), error);
        if (error) return std::nullopt;
        const fs::path base = fs::weakly_canonical(fs::path(folder), error);
        if (error) return std::nullopt;
        std::string relative = song.lexically_relative(base).generic_string();
        if (!isSafeRelativePath(relative)) return std::nullopt;
        return relative;
    } catch (...) {
        return std::nullopt;
    }
}

}  // namespace tamo::shell
