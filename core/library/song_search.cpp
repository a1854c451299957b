#include "song_search.h"

#include "text.h"

#include <algorithm>
#include <array>

namespace tamo::core {
namespace {

constexpr std::array<unsigned char, 256> makeFoldTable() {
    std::array<unsigned char, 256> table{};
    for (int i = 0; i < 256; ++i) {
        table[static_cast<std::size_t>(i)] =
            static_cast<unsigned char>((i >= 'A' && i <= 'Z') ? i - 'A' + 'a' : i);
    }
    return table;
}
constexpr std::array<unsigned char, 256> kFold = makeFoldTable();

// Whether word (lower case already) occurs in text with text's ASCII
// capitals folded.
bool containsFolded(std::string_view text, std::string_view word) {
    if (word.size() > text.size()) return false;
    const auto first = static_cast<unsigned char>(word.front());
    const std::size_t last = text.size() - word.size();
    for (std::size_t at = 0; at <= last; ++at) {
        if (kFold[static_cast<unsigned char>(text[at])] != first) continue;
        std::size_t i = 1;
        while (i < word.size() && kFold[static_cast<unsigned char>(text[at + i])] ==
                                      static_cast<unsigned char>(word[i])) {
            ++i;
        }
        if (i == word.size()) return true;
    }
    return false;
}

std::string_view fieldText(const Song& song, SongSearchField field) {
    switch (field) {
        case SongSearchField::Artist: return song.artist;
        case SongSearchField::Title: return song.title;
        case SongSearchField::FileName: break;
    }
    return songFileName(song.path);
}

template <typename Emit>
void walkMatches(const std::vector<Song>& songs, std::string_view normalizedQuery, SongSearchField field,
                 SongSearchMode mode, std::size_t limit, Emit&& emit) {
    std::size_t found = 0;
    for (const Song& song : songs) {
        if (!songMatches(song, normalizedQuery, field, mode)) continue;
        emit(song);
        if (++found == limit) break;
    }
}

std::size_t reservation(std::size_t songCount, std::size_t limit) {
    return std::min(songCount, limit == 0 ? std::size_t{256} : limit);
}

}  // namespace

SongSearchField songSearchFieldFromIndex(int index) {
    if (index == 1) return SongSearchField::Artist;
    if (index == 2) return SongSearchField::Title;
    return SongSearchField::FileName;
}

SongSearchMode songSearchModeFromIndex(int index) {
    return index == 1 ? SongSearchMode::AnyWord : SongSearchMode::AllWords;
}

SongSearchSnapshot makeSongSearchSnapshot(std::vector<Song> songs) {
    return std::make_shared<const std::vector<Song>>(std::move(songs));
}

std::string_view songFileName(std::string_view path) {
    const std::size_t separator = path.find_last_of("/\\");
    return separator == std::string_view::npos ? path : path.substr(separator + 1);
}

SongSearchRow makeSongSearchRow(const Song& song) {
    return SongSearchRow{song.id, song.title, song.artist, std::string(songFileName(song.path))};
}

std::string normalizeSearchQuery(std::string_view text) { return asciiLower(trimText(text)); }

bool songMatches(const Song& song, std::string_view normalizedQuery, SongSearchField field, SongSearchMode mode) {
    if (normalizedQuery.empty()) return true;
    const std::string_view text = fieldText(song, field);
    bool anyWord = false;
    std::size_t at = 0;
    while (at < normalizedQuery.size()) {
        while (at < normalizedQuery.size() && isSpaceByte(normalizedQuery[at])) ++at;
        std::size_t end = at;
        while (end < normalizedQuery.size() && !isSpaceByte(normalizedQuery[end])) ++end;
        if (end == at) break;
        anyWord = true;
        const bool found = containsFolded(text, normalizedQuery.substr(at, end - at));
        if (mode == SongSearchMode::AnyWord && found) return true;
        if (mode == SongSearchMode::AllWords && !found) return false;
        at = end;
    }
    // White space alone names no word and matches nothing.
    return anyWord && mode == SongSearchMode::AllWords;
}

std::vector<Song> searchSongs(const std::vector<Song>& songs, std::string_view query, std::size_t limit) {
    const std::string normalized = normalizeSearchQuery(query);
    std::vector<Song> found;
    found.reserve(reservation(songs.size(), limit));
    walkMatches(songs, normalized, SongSearchField::FileName, SongSearchMode::AllWords, limit,
                [&](const Song& song) { found.push_back(song); });
    return found;
}

std::vector<SongSearchRow> searchSongRows(const std::vector<Song>& songs, std::string_view normalizedQuery,
                                          SongSearchField field, SongSearchMode mode, std::size_t limit) {
    std::vector<SongSearchRow> rows;
    rows.reserve(reservation(songs.size(), limit));
    walkMatches(songs, normalizedQuery, field, mode, limit,
                [&](const Song& song) { rows.push_back(makeSongSearchRow(song)); });
    return rows;
}

}  // namespace tamo::core
