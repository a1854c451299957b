#include "build_song.h"

#include "filename_metadata.h"
#include "karaoke_graphics.h"
#include "text.h"

#include <filesystem>
#include <system_error>

namespace tamo::core {
namespace fs = std::filesystem;
namespace {

Song songFromPath(std::int32_t id, const fs::path& path) {
    const std::string stem = path.stem().string();
    FilenameMetadata parsed = parseFilenameMetadata(stem);
    std::string extension = asciiLower(path.extension().string());
    if (!extension.empty() && extension.front() == '.') extension.erase(0, 1);

    Song song;
    song.id = id;
    song.path = path.string();
    song.title = parsed.title.empty() ? stem : std::move(parsed.title);
    song.artist = std::move(parsed.artist);
    song.format = std::move(extension);
    return song;
}

}  // namespace

Song buildSong(std::int32_t id, std::string_view mediaPath, bool pairKnown) {
    fs::path path{std::string(mediaPath)};
    std::error_code ec;
    fs::path absolute = fs::absolute(path, ec);
    if (!ec) path = std::move(absolute);
    Song song = songFromPath(id, path);
    if (pairKnown) song.cdgPath = findKaraokeGraphics(song.path);
    return song;
}

Song buildFastSong(std::string_view mediaPath) {
    const fs::path path = fs::path(std::string(mediaPath)).lexically_normal();
    Song song = songFromPath(0, path);
    fs::path graphics = path;
    graphics.replace_extension(".cdg");
    song.cdgPath = graphics.string();
    return song;
}

}  // namespace tamo::core
