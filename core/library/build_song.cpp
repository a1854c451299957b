#include "build_song.h"

#include "filename_metadata.h"
#include "karaoke_graphics.h"
#include "media_tree.h"
#include "text.h"

#include <filesystem>
#include <system_error>

namespace tamo::core {
namespace fs = std::filesystem;
namespace {

// Scans make hundreds of thousands of songs, so the parts of a path are cut
// from the text rather than through std::filesystem::path objects.
Song songFromPath(std::int32_t id, std::string path) {
    const std::string_view name = media_tree::fileNameOf(path);
    const std::string_view stem = media_tree::stemOf(name);
    FilenameMetadata parsed = parseFilenameMetadata(stem);
    std::string extension = asciiLower(media_tree::extensionOf(name));
    if (!extension.empty()) extension.erase(0, 1);

    Song song;
    song.id = id;
    song.title = parsed.title.empty() ? std::string(stem) : std::move(parsed.title);
    song.artist = std::move(parsed.artist);
    song.format = std::move(extension);
    song.path = std::move(path);
    return song;
}

// True when lexically_normal() would leave the text as it is: no empty,
// "." or ".." element and no trailing separator.
bool isLexicallyNormal(std::string_view path) {
    if (path.empty() || path.back() == '/') return false;
    std::size_t start = path.front() == '/' ? 1 : 0;
    while (start <= path.size()) {
        std::size_t end = path.find('/', start);
        if (end == std::string_view::npos) end = path.size();
        const std::string_view element = path.substr(start, end - start);
        if (element.empty() || element == "." || element == "..") return false;
        start = end + 1;
    }
    return true;
}

}  // namespace

Song buildSong(std::int32_t id, std::string_view mediaPath, bool pairKnown) {
    std::string path(mediaPath);
    if (path.empty() || path.front() != '/') {
        std::error_code ec;
        fs::path absolute = fs::absolute(fs::path(path), ec);
        if (!ec) path = absolute.string();
    }
    Song song = songFromPath(id, std::move(path));
    if (pairKnown) song.cdgPath = findKaraokeGraphics(song.path);
    return song;
}

Song buildFastSong(std::string mediaPath) {
    if (!isLexicallyNormal(mediaPath)) mediaPath = fs::path(mediaPath).lexically_normal().string();
    Song song = songFromPath(0, std::move(mediaPath));
    const std::string_view name = media_tree::fileNameOf(song.path);
    const std::size_t keep = song.path.size() - media_tree::extensionOf(name).size();
    song.cdgPath.reserve(keep + 4);
    song.cdgPath.assign(song.path, 0, keep);
    song.cdgPath += ".cdg";
    return song;
}

}  // namespace tamo::core
