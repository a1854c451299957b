#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tamo::core {

// Filler tunes as data: named playlists of track paths, the active one, how
// filler starts, and its volume. The event core holds none of it; the shell
// keeps it beside the event and stores it with the settings.

inline constexpr std::string_view kDefaultFillerPlaylistName = "Default";
inline constexpr std::string_view kDefaultFillerMode = "manual";
inline constexpr double kDefaultFillerVolume = 0.45;
inline constexpr std::size_t kMaxFillerPlaylistNameCharacters = 80;

// Separators of the stored playlists text: records, and tracks within one.
inline constexpr char kFillerRecordSeparator = '\x1E';
inline constexpr char kFillerTrackSeparator = '\x1F';

// Playlist name to track paths; the stored text lists records in key order.
using FillerPlaylists = std::map<std::string, std::vector<std::string>>;

struct FillerSettings {
    std::string playlistName = std::string(kDefaultFillerPlaylistName);
    FillerPlaylists playlists;
    std::vector<std::string> tracks;  // a copy of the active playlist
    std::string mode = std::string(kDefaultFillerMode);
    bool shuffle = false;
    std::int32_t currentIndex = 0;
    double volume = kDefaultFillerVolume;

    friend bool operator==(const FillerSettings&, const FillerSettings&) = default;
};

// The stored keys as they were found: a key that is absent, or of the wrong
// type, is nothing and leaves its default.
struct FillerStoredValues {
    std::optional<std::string> fillerPlaylistName;
    std::optional<std::string> fillerPlaylists;
    std::optional<std::string> fillerPlaylist;  // the older single list, one path a line
    std::optional<std::string> fillerMode;
    std::optional<bool> fillerShuffle;
    std::optional<double> fillerCurrentIndex;
    std::optional<double> fillerVolume;
};

// Lower-cased (per code point, C.UTF-8): "between singers" and "between" give
// "between"; "continuous" and "manual" stay; anything else gives "off".
std::string normalizeFillerMode(std::string_view text);
// Blanks cut from both ends, then the first 80 characters; "Default" when
// nothing is left.
std::string normalizePlaylistName(std::string_view text);
// Records split at U+001E, tracks at U+001F; names normalised, empty tracks
// dropped, records of one name merged. Never empty: at least "Default".
FillerPlaylists parseFillerPlaylists(std::string_view text);
std::string formatFillerPlaylists(const FillerPlaylists& playlists);

// The reading order of the filler keys: values, clamps and normalising, the
// playlists, the older single list into an empty active list, the active
// name made to exist, the active tracks. Any failure gives the defaults.
FillerSettings readFillerSettings(const FillerStoredValues& stored);
// What a save stores: every key, the older single list holding the active one.
FillerStoredValues storedFillerValues(const FillerSettings& settings);

}  // namespace tamo::core
