#pragma once

#include "song.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tamo::core {

enum class SongSearchField : std::int32_t { FileName = 0, Artist = 1, Title = 2 };
enum class SongSearchMode : std::int32_t { AllWords = 0, AnyWord = 1 };

// The field for a choice-box index: 1 is Artist, 2 is Title, anything else
// is FileName.
SongSearchField songSearchFieldFromIndex(int index);
// 1 is AnyWord, anything else AllWords.
SongSearchMode songSearchModeFromIndex(int index);

// A shared, immutable copy of the library's songs in library order. A new one
// is published on each library change; a running search keeps its own alive,
// and the address serves as the snapshot's version.
using SongSearchSnapshot = std::shared_ptr<const std::vector<Song>>;
SongSearchSnapshot makeSongSearchSnapshot(std::vector<Song> songs);

// What a result list shows of a song.
struct SongSearchRow {
    std::int32_t id = 0;
    std::string title;
    std::string artist;
    std::string fileName;

    friend bool operator==(const SongSearchRow&, const SongSearchRow&) = default;
};
SongSearchRow makeSongSearchRow(const Song& song);

// The text after the last "/" or backslash, or the whole path.
std::string_view songFileName(std::string_view path);

// Trimmed of C-locale white space, ASCII A to Z lower-cased; every other byte,
// accented letters included, stays as it is.
std::string normalizeSearchQuery(std::string_view text);

// Whether song's field holds the words of an already normalised query: each
// word a substring of the field with its ASCII capitals folded. An empty
// query matches every song. No allocation.
bool songMatches(const Song& song, std::string_view normalizedQuery, SongSearchField field, SongSearchMode mode);

// A filter, never a ranking: the first matches in library order, by file
// name, all words, at most limit of them (0 means no limit).
std::vector<Song> searchSongs(const std::vector<Song>& songs, std::string_view query, std::size_t limit);

// The same walk for a result list, with any field and mode; query must be
// normalised already.
std::vector<SongSearchRow> searchSongRows(const std::vector<Song>& songs, std::string_view normalizedQuery,
                                          SongSearchField field, SongSearchMode mode, std::size_t limit);

}  // namespace tamo::core
