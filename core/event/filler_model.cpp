#include "filler_model.h"

#include "text.h"

#include <clocale>
#include <cmath>
#include <cwctype>
#include <locale.h>

namespace tamo::core {
namespace {

// Decodes one UTF-8 code point at text[i]; a malformed byte decodes as
// itself with length 1 so that lowering never loses bytes.
char32_t decodeAt(std::string_view text, std::size_t i, std::size_t& length) {
    const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(text[k]); };
    const unsigned char lead = byte(i);
    std::size_t need = 0;
    char32_t value = 0;
    if (lead < 0x80) {
        length = 1;
        return lead;
    }
    if (lead >= 0xC2 && lead <= 0xDF) {
        need = 1;
        value = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        need = 2;
        value = lead & 0x0F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        need = 3;
        value = lead & 0x07;
    } else {
        length = 1;
        return 0xFFFFFFFF;
    }
    if (i + need >= text.size()) {
        length = 1;
        return 0xFFFFFFFF;
    }
    for (std::size_t k = 1; k <= need; ++k) {
        if ((byte(i + k) & 0xC0) != 0x80) {
            length = 1;
            return 0xFFFFFFFF;
        }
        value = (value << 6) | (byte(i + k) & 0x3F);
    }
    length = need + 1;
    return value;
}

void encode(std::string& out, char32_t cp) {
    if (cp < 0x80) {
        out.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
}

locale_t utf8Locale() {
    static const locale_t locale = [] {
        locale_t made = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", static_cast<locale_t>(nullptr));
        return made != static_cast<locale_t>(nullptr) ? made : ::newlocale(LC_CTYPE_MASK, "C", nullptr);
    }();
    return locale;
}

std::string lowerCodePoints(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    const locale_t locale = utf8Locale();
    for (std::size_t i = 0; i < text.size();) {
        std::size_t length = 1;
        const char32_t cp = decodeAt(text, i, length);
        if (cp == 0xFFFFFFFF) {
            out.push_back(text[i]);
        } else {
            const wint_t lowered = locale != static_cast<locale_t>(nullptr)
                                       ? ::towlower_l(static_cast<wint_t>(cp), locale)
                                       : static_cast<wint_t>(cp);
            encode(out, static_cast<char32_t>(lowered));
        }
        i += length;
    }
    return out;
}

// The first `count` code points of text, never splitting a sequence.
std::string_view firstCharacters(std::string_view text, std::size_t count) {
    std::size_t i = 0;
    for (std::size_t n = 0; n < count && i < text.size(); ++n) {
        std::size_t length = 1;
        decodeAt(text, i, length);
        i += length;
    }
    return text.substr(0, i);
}

}  // namespace

std::string normalizeFillerMode(std::string_view text) {
    const std::string lowered = lowerCodePoints(text);
    if (lowered == "between singers" || lowered == "between") return "between";
    if (lowered == "continuous" || lowered == "manual") return lowered;
    return "off";
}

std::string normalizePlaylistName(std::string_view text) {
    const std::string trimmed = trimText(text);
    if (trimmed.empty()) return std::string(kDefaultFillerPlaylistName);
    std::string cut(firstCharacters(trimmed, kMaxFillerPlaylistNameCharacters));
    if (cut.empty()) return std::string(kDefaultFillerPlaylistName);
    return cut;
}

FillerPlaylists parseFillerPlaylists(std::string_view text) {
    FillerPlaylists playlists;
    std::size_t start = 0;
    while (start < text.size()) {
        std::size_t end = text.find(kFillerRecordSeparator, start);
        if (end == std::string_view::npos) end = text.size();
        const std::string_view record = text.substr(start, end - start);
        std::size_t cut = record.find(kFillerTrackSeparator);
        std::vector<std::string>& tracks =
            playlists[normalizePlaylistName(record.substr(0, cut == std::string_view::npos ? record.size() : cut))];
        while (cut != std::string_view::npos) {
            const std::size_t next = record.find(kFillerTrackSeparator, cut + 1);
            const std::string_view track =
                record.substr(cut + 1, (next == std::string_view::npos ? record.size() : next) - cut - 1);
            if (!track.empty()) tracks.emplace_back(track);
            cut = next;
        }
        start = end + 1;
    }
    if (playlists.empty()) playlists[std::string(kDefaultFillerPlaylistName)];
    return playlists;
}

std::string formatFillerPlaylists(const FillerPlaylists& playlists) {
    std::string out;
    bool first = true;
    for (const auto& [name, tracks] : playlists) {
        if (!first) out.push_back(kFillerRecordSeparator);
        first = false;
        out.append(name);
        for (const std::string& track : tracks) {
            out.push_back(kFillerTrackSeparator);
            out.append(track);
        }
    }
    return out;
}

FillerSettings readFillerSettings(const FillerStoredValues& stored) {
    FillerSettings settings;
    try {
        if (stored.fillerPlaylistName) settings.playlistName = *stored.fillerPlaylistName;
        if (stored.fillerMode) settings.mode = *stored.fillerMode;
        if (stored.fillerShuffle) settings.shuffle = *stored.fillerShuffle;
        if (stored.fillerCurrentIndex && std::isfinite(*stored.fillerCurrentIndex) &&
            *stored.fillerCurrentIndex >= -2147483648.0 && *stored.fillerCurrentIndex <= 2147483647.0)
            settings.currentIndex = static_cast<std::int32_t>(*stored.fillerCurrentIndex);
        if (stored.fillerVolume && std::isfinite(*stored.fillerVolume))
            settings.volume = std::fmin(1.0, std::fmax(0.0, *stored.fillerVolume));

        settings.mode = normalizeFillerMode(settings.mode);
        settings.playlistName = normalizePlaylistName(settings.playlistName);
        if (stored.fillerPlaylists) settings.playlists = parseFillerPlaylists(*stored.fillerPlaylists);

        if (stored.fillerPlaylist && !stored.fillerPlaylist->empty()) {
            std::vector<std::string>& active = settings.playlists[settings.playlistName];
            if (active.empty()) {
                std::string_view lines = *stored.fillerPlaylist;
                while (!lines.empty()) {
                    const std::size_t end = lines.find('\n');
                    std::string_view line = lines.substr(0, end);
                    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
                    if (!line.empty()) active.emplace_back(line);
                    lines = end == std::string_view::npos ? std::string_view() : lines.substr(end + 1);
                }
            }
        }
        if (settings.playlists.count(settings.playlistName) == 0) {
            if (settings.playlists.empty()) settings.playlists[settings.playlistName];
            else settings.playlistName = settings.playlists.begin()->first;
        }
        settings.tracks = settings.playlists[settings.playlistName];
        return settings;
    } catch (...) {
        return FillerSettings{};
    }
}

FillerStoredValues storedFillerValues(const FillerSettings& settings) {
    FillerStoredValues stored;
    stored.fillerPlaylistName = settings.playlistName;
    stored.fillerPlaylists = formatFillerPlaylists(settings.playlists);
    std::string single;
    for (const std::string& track : settings.tracks) {
        if (!single.empty()) single.push_back('\n');
        single.append(track);
    }
    stored.fillerPlaylist = single;
    stored.fillerMode = settings.mode;
    stored.fillerShuffle = settings.shuffle;
    stored.fillerCurrentIndex = settings.currentIndex;
    stored.fillerVolume = settings.volume;
    return stored;
}

}  // namespace tamo::core
