#include "song_search.h"

#include "text.h"

#include <algorithm>
#include <array>
#include <cstring>

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
// capitals folded, comparing byte by byte.
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

// Most fields are short: they are folded once into a buffer on the stack,
// eight bytes at a time, and each word is then found with memmem, which is
// much faster than a folding comparison at every position. Longer fields
// take the slow road.
constexpr std::size_t kFoldBuffer = 512;

// ASCII capitals of eight bytes at once to small letters: a byte below 0x80
// that lies in 'A'..'Z' gets bit 0x20 set; every other byte stays.
std::uint64_t foldEight(std::uint64_t x) {
    constexpr std::uint64_t ones = 0x0101010101010101ULL;
    constexpr std::uint64_t highs = 0x8080808080808080ULL;
    const std::uint64_t low = x & ~highs;
    const std::uint64_t atLeastA = low + ones * (0x80 - 'A');
    const std::uint64_t aboveZ = low + ones * (0x80 - 'Z' - 1);
    const std::uint64_t upper = atLeastA & ~aboveZ & ~x & highs;
    return x | (upper >> 2);
}

class FoldedText {
public:
    explicit FoldedText(std::string_view text) : text_(text), folded_(text.size() <= kFoldBuffer) {
        if (!folded_) return;
        std::size_t i = 0;
        for (; i + 8 <= text.size(); i += 8) {
            std::uint64_t word;
            std::memcpy(&word, text.data() + i, 8);
            word = foldEight(word);
            std::memcpy(buffer_.data() + i, &word, 8);
        }
        for (; i < text.size(); ++i) buffer_[i] = static_cast<char>(kFold[static_cast<unsigned char>(text[i])]);
    }

    bool contains(std::string_view word) const {
        if (!folded_) return containsFolded(text_, word);
        return ::memmem(buffer_.data(), text_.size(), word.data(), word.size()) != nullptr;
    }

private:
    std::string_view text_;
    bool folded_;
    std::array<char, kFoldBuffer> buffer_;
};

// A query split into its words once for a whole walk of the library.
class QueryMatcher {
public:
    QueryMatcher(std::string_view normalizedQuery, SongSearchField field, SongSearchMode mode)
        : field_(field), mode_(mode), empty_(normalizedQuery.empty()) {
        std::size_t at = 0;
        while (at < normalizedQuery.size()) {
            while (at < normalizedQuery.size() && isSpaceByte(normalizedQuery[at])) ++at;
            std::size_t end = at;
            while (end < normalizedQuery.size() && !isSpaceByte(normalizedQuery[end])) ++end;
            if (end > at) words_.push_back(normalizedQuery.substr(at, end - at));
            at = end;
        }
    }

    bool matches(const Song& song) const {
        if (empty_) return true;
        if (words_.empty()) return false;
        const FoldedText text(fieldText(song, field_));
        for (std::string_view word : words_) {
            const bool found = text.contains(word);
            if (mode_ == SongSearchMode::AnyWord && found) return true;
            if (mode_ == SongSearchMode::AllWords && !found) return false;
        }
        return mode_ == SongSearchMode::AllWords;
    }

private:
    static std::string_view fieldText(const Song& song, SongSearchField field);

    SongSearchField field_;
    SongSearchMode mode_;
    bool empty_;
    std::vector<std::string_view> words_;
};

std::string_view QueryMatcher::fieldText(const Song& song, SongSearchField field) {
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
    const QueryMatcher matcher(normalizedQuery, field, mode);
    std::size_t found = 0;
    for (const Song& song : songs) {
        if (!matcher.matches(song)) continue;
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
    const void* slash = ::memrchr(path.data(), '/', path.size());
    std::size_t start = slash == nullptr ? 0 : static_cast<std::size_t>(static_cast<const char*>(slash) - path.data()) + 1;
    const std::string_view tail = path.substr(start);
    const void* backslash = ::memrchr(tail.data(), '\\', tail.size());
    if (backslash != nullptr) start += static_cast<std::size_t>(static_cast<const char*>(backslash) - tail.data()) + 1;
    return path.substr(start);
}

SongSearchRow makeSongSearchRow(const Song& song) {
    return SongSearchRow{song.id, song.title, song.artist, std::string(songFileName(song.path))};
}

std::string normalizeSearchQuery(std::string_view text) { return asciiLower(trimText(text)); }

bool songMatches(const Song& song, std::string_view normalizedQuery, SongSearchField field, SongSearchMode mode) {
    if (normalizedQuery.empty()) return true;
    std::string_view text = song.path;
    switch (field) {
        case SongSearchField::Artist: text = song.artist; break;
        case SongSearchField::Title: text = song.title; break;
        case SongSearchField::FileName: text = songFileName(song.path); break;
    }
    const FoldedText folded(text);
    bool anyWord = false;
    std::size_t at = 0;
    while (at < normalizedQuery.size()) {
        while (at < normalizedQuery.size() && isSpaceByte(normalizedQuery[at])) ++at;
        std::size_t end = at;
        while (end < normalizedQuery.size() && !isSpaceByte(normalizedQuery[end])) ++end;
        if (end == at) break;
        anyWord = true;
        const bool found = folded.contains(normalizedQuery.substr(at, end - at));
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
