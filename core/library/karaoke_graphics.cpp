#include "karaoke_graphics.h"

#include "media_kinds.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <vector>

namespace tamo::core {
namespace fs = std::filesystem;
namespace {

bool isRegular(const fs::path& path) {
    std::error_code ec;
    return fs::is_regular_file(path, ec) && !ec;
}

std::string canonicalOr(const fs::path& path) {
    std::error_code ec;
    fs::path canonical = fs::canonical(path, ec);
    return ec ? path.string() : canonical.string();
}

}  // namespace

std::string findKaraokeGraphics(std::string_view mediaPath) {
    if (mediaPath.empty()) return {};
    const fs::path media{std::string(mediaPath)};

    for (const char* extension : {".cdg", ".CDG"}) {
        fs::path candidate = media;
        candidate.replace_extension(extension);
        if (isRegular(candidate)) return canonicalOr(candidate);
    }

    const fs::path stem = media.stem();
    fs::path directory = media.parent_path();
    if (directory.empty()) directory = ".";
    std::vector<fs::path> kept;
    std::error_code ec;
    fs::directory_iterator it(directory, ec);
    if (ec) return {};
    for (const fs::directory_iterator end; it != end; it.increment(ec)) {
        if (ec) return {};
        const fs::path& entry = it->path();
        if (entry.stem().native() != stem.native()) continue;
        if (!isGraphicsFile(entry)) continue;
        std::error_code typeError;
        if (!it->is_regular_file(typeError) || typeError) continue;
        kept.push_back(entry);
    }
    if (ec) return {};
    if (kept.empty()) return {};
    std::sort(kept.begin(), kept.end());
    return canonicalOr(kept.front());
}

std::string resolveSongGraphics(const Song& song) {
    if (!song.cdgPath.empty() && isRegular(fs::path(song.cdgPath))) return song.cdgPath;
    return findKaraokeGraphics(song.path);
}

}  // namespace tamo::core
