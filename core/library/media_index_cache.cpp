#include "media_index_cache.h"

#include "fnv1a.h"
#include "media_kinds.h"
#include "media_tree.h"
#include "unique_fd.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <charconv>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>
#include <unordered_set>

namespace tamo::core {
namespace fs = std::filesystem;
using namespace media_tree;
using Limits = MediaIndexCacheLimits;

namespace {

// ---- reading ---------------------------------------------------------------

// Lines of the cache file in a buffer of a few MiB; a line may not exceed the
// line limit and all lines together may not exceed the file limit.
class LineReader {
public:
    enum class Result { Line, End, Fail };

    explicit LineReader(int fd) : fd_(fd), buffer_(kBufferBytes) {}

    Result next(std::string_view& line) {
        for (;;) {
            const char* begin = buffer_.data() + start_;
            const char* newline = static_cast<const char*>(std::memchr(begin, '\n', end_ - start_));
            if (newline != nullptr) {
                const std::size_t length = static_cast<std::size_t>(newline - begin);
                return take(line, length, length + 1);
            }
            if (end_ - start_ >= Limits::lineBufferBytes - 1) return Result::Fail;
            if (eof_) {
                if (end_ == start_) return Result::End;
                const std::size_t length = end_ - start_;
                return take(line, length, length);
            }
            if (!fill()) return Result::Fail;
        }
    }

    std::uint64_t position() const { return consumed_; }

private:
    static constexpr std::size_t kBufferBytes = 4u << 20;

    Result take(std::string_view& line, std::size_t length, std::size_t consumed) {
        if (length > Limits::maxLineBytes) return Result::Fail;
        consumed_ += consumed;
        if (consumed_ > Limits::maxFileBytes) return Result::Fail;
        line = std::string_view(buffer_.data() + start_, length);
        start_ += consumed;
        return Result::Line;
    }

    bool fill() {
        if (start_ > 0) {
            std::memmove(buffer_.data(), buffer_.data() + start_, end_ - start_);
            end_ -= start_;
            start_ = 0;
        }
        while (end_ < buffer_.size()) {
            const long got = readSome(fd_, buffer_.data() + end_, buffer_.size() - end_);
            if (got < 0) return false;
            if (got == 0) {
                eof_ = true;
                break;
            }
            end_ += static_cast<std::size_t>(got);
            if (std::memchr(buffer_.data() + end_ - static_cast<std::size_t>(got), '\n', static_cast<std::size_t>(got))) break;
        }
        return true;
    }

    int fd_;
    std::vector<char> buffer_;
    std::size_t start_ = 0;
    std::size_t end_ = 0;
    std::uint64_t consumed_ = 0;
    bool eof_ = false;
};

// Splits at tabs into exactly N fields.
template <std::size_t N>
bool splitFields(std::string_view line, std::array<std::string_view, N>& fields) {
    std::size_t index = 0;
    for (;;) {
        const std::size_t tab = line.find('\t');
        if (index == N) return false;
        fields[index++] = line.substr(0, tab);
        if (tab == std::string_view::npos) break;
        line.remove_prefix(tab + 1);
    }
    return index == N;
}

std::optional<std::uint64_t> parseUnsigned(std::string_view text, std::uint64_t max) {
    if (text.empty()) return std::nullopt;
    for (char c : text) {
        if (c < '0' || c > '9') return std::nullopt;
    }
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value > max) return std::nullopt;
    return value;
}

std::optional<std::int64_t> parseSigned(std::string_view text) {
    const bool negative = !text.empty() && text.front() == '-';
    if (negative) text.remove_prefix(1);
    const auto magnitude = parseUnsigned(text, negative ? 0x8000000000000000ULL : 0x7FFFFFFFFFFFFFFFULL);
    if (!magnitude) return std::nullopt;
    if (!negative) return static_cast<std::int64_t>(*magnitude);
    return *magnitude == 0x8000000000000000ULL ? INT64_MIN : -static_cast<std::int64_t>(*magnitude);
}

void unescapeInto(std::string_view text, std::string& out) {
    if (text.find('\\') == std::string_view::npos) {
        out.assign(text);
        return;
    }
    out.clear();
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c != '\\' || i + 1 == text.size()) {
            out += c;
            continue;
        }
        const char next = text[++i];
        switch (next) {
            case 'n': out += '\n'; break;
            case 'r': out += '\r'; break;
            case 't': out += '\t'; break;
            default: out += next; break;
        }
    }
}

// No root part and no element that is empty, "." or "..".
bool isSafeRelative(std::string_view path) {
    if (path.empty() || path.front() == '/') return false;
    for (;;) {
        const std::size_t slash = path.find('/');
        const std::string_view element = path.substr(0, slash);
        if (element.empty() || element == "." || element == "..") return false;
        if (slash == std::string_view::npos) return true;
        path.remove_prefix(slash + 1);
    }
}

bool hasDotDotElement(std::string_view path) {
    for (;;) {
        const std::size_t slash = path.find('/');
        if (path.substr(0, slash) == "..") return true;
        if (slash == std::string_view::npos) return false;
        path.remove_prefix(slash + 1);
    }
}

std::string_view parentKey(std::string_view relative) {
    const std::size_t slash = relative.rfind('/');
    return slash == std::string_view::npos ? std::string_view(".") : relative.substr(0, slash);
}

enum class PathKind { Media, Graphics };

struct ReadContext {
    std::string root;
    std::string prefix;
    MountIdentity mount;
    bool v4 = false;
    bool checkDisk = false;
    std::unordered_set<std::string_view> keys;
    std::optional<MountedFiles> mountedFiles;
    // The folder of the file checked last: songs come in path order, so
    // their files are looked up by name inside it rather than walking the
    // whole path again for each one.
    std::string folder;
    UniqueFd folderFd;
};

bool plainDirectoryOnTree(const ReadContext& context, const std::string& path) {
    struct statx st {};
    return statEntry(AT_FDCWD, path.c_str(), 0, st) == 0 && isDirectory(st) && onSameMount(st, context.mount);
}

bool plainFileOnTree(ReadContext& context, const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) return false;
    const std::string_view folder = std::string_view(path).substr(0, slash == 0 ? 1 : slash);
    if (!context.folderFd.valid() || folder != context.folder) {
        context.folder.assign(folder);
        context.folderFd.reset(::open(context.folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
        if (!context.folderFd.valid()) return false;
    }
    struct statx st {};
    if (statEntry(context.folderFd.get(), path.c_str() + slash + 1, 0, st) != 0 || !isRegular(st) ||
        !onSameMount(st, context.mount)) {
        return false;
    }
    return !context.mountedFiles || !context.mountedFiles->contains(path);
}

// Every key is "." or a safe relative path whose parent is listed too, and
// names a plain directory on the root's mount. The disk part runs in every
// mode, so a deleted or replaced subfolder is never trusted.
bool directoriesValid(const ReadContext& context, const std::vector<DirectoryStamp>& stamps) {
    if (context.keys.count(".") == 0) return false;
    std::string full;
    for (const DirectoryStamp& stamp : stamps) {
        if (stamp.key == ".") {
            full = context.root;
        } else {
            if (!isSafeRelative(stamp.key) || context.keys.count(parentKey(stamp.key)) == 0) return false;
            full = context.prefix;
            full += stamp.key;
        }
        if (!plainDirectoryOnTree(context, full)) return false;
    }
    return true;
}

// A SONG path field to the absolute path it stands for, or false.
bool decodePath(ReadContext& context, std::string_view field, PathKind kind, std::string& scratch,
                std::string& full) {
    if (field.empty()) return false;
    unescapeInto(field, scratch);
    std::string_view relative;
    if (!context.v4) {
        if (!isSafeRelative(scratch)) return false;
        relative = scratch;
    } else {
        if (scratch.empty() || scratch.front() != '/') return false;
        if (fs::path(scratch).lexically_normal().string() != scratch) return false;
        if (!liesBelow(scratch, context.prefix)) return false;
        relative = std::string_view(scratch).substr(context.prefix.size());
        if (!isSafeRelative(relative)) return false;
    }
    if (context.keys.count(parentKey(relative)) == 0) return false;
    const std::string_view extension = extensionOf(fileNameOf(relative));
    if (kind == PathKind::Media ? !isMediaExtension(extension) : !isGraphicsExtension(extension)) return false;
    full.clear();
    full.reserve(context.prefix.size() + relative.size());
    full.append(context.prefix).append(relative);
    return !context.checkDisk || plainFileOnTree(context, full);
}

bool readCount(LineReader& reader, std::string_view keyword, std::uint64_t max, std::uint64_t fileSize,
               std::uint64_t bytesPerRecord, std::uint64_t& count) {
    std::string_view line;
    if (reader.next(line) != LineReader::Result::Line) return false;
    std::array<std::string_view, 2> fields;
    if (!splitFields(line, fields) || fields[0] != keyword) return false;
    const auto value = parseUnsigned(fields[1], max);
    if (!value) return false;
    // A forged count must not be able to force a large allocation.
    if (reader.position() > fileSize || *value > (fileSize - reader.position()) / bytesPerRecord) return false;
    count = *value;
    return true;
}

bool readCache(const fs::path& cachePath, const fs::path& root, std::vector<DirectoryStamp>& stamps,
               std::vector<Song>& songs, bool* formatUpgradeNeeded, const ScanProgress& progress, bool checkDisk) {
    std::uint64_t fileSize = 0;
    UniqueFd fd = openRegularForRead(cachePath, &fileSize);
    if (!fd.valid() || fileSize < 1 || fileSize > Limits::maxFileBytes) return false;
    ::posix_fadvise(fd.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
    LineReader reader(fd.get());
    std::string_view line;

    ReadContext context;
    context.root = root.string();
    if (context.root.empty()) return false;
    context.prefix = joinPrefix(context.root);
    context.checkDisk = checkDisk;
    {
        struct statx st {};
        if (statEntry(AT_FDCWD, context.root.c_str(), 0, st) != 0 || !isDirectory(st)) return false;
        context.mount = mountIdentityOf(st);
    }

    if (reader.next(line) != LineReader::Result::Line) return false;
    if (line == kMediaIndexMagicV4) {
        context.v4 = true;
    } else if (line != kMediaIndexMagicV5) {
        return false;
    }

    std::string scratch;
    {
        if (reader.next(line) != LineReader::Result::Line) return false;
        std::array<std::string_view, 2> fields;
        if (!splitFields(line, fields) || fields[0] != "ROOT") return false;
        unescapeInto(fields[1], scratch);
        if (scratch != context.root) return false;
    }

    std::uint64_t directoryCount = 0;
    if (!readCount(reader, "DIRS", Limits::maxDirectories, fileSize, 12, directoryCount)) return false;
    std::vector<DirectoryStamp> readStamps;
    readStamps.reserve(directoryCount);
    context.keys.reserve(directoryCount);
    for (std::uint64_t i = 0; i < directoryCount; ++i) {
        if (reader.next(line) != LineReader::Result::Line) return false;
        std::array<std::string_view, 5> fields;
        if (!splitFields(line, fields) || fields[0] != "DIR") return false;
        DirectoryStamp stamp;
        unescapeInto(fields[1], stamp.key);
        if (stamp.key.empty() || stamp.key.front() == '/' || hasDotDotElement(stamp.key)) return false;
        const auto timestamp = parseSigned(fields[2]);
        const auto nameCount = parseUnsigned(fields[3], UINT64_MAX);
        const auto nameHash = parseUnsigned(fields[4], UINT64_MAX);
        if (!timestamp || !nameCount || !nameHash) return false;
        stamp.timestamp = *timestamp;
        stamp.nameCount = *nameCount;
        stamp.nameHash = *nameHash;
        readStamps.push_back(std::move(stamp));
        // The vector never grows past its reservation, so views stay valid.
        if (!context.keys.insert(readStamps.back().key).second) return false;
    }
    if (!directoriesValid(context, readStamps)) return false;

    std::uint64_t songCount = 0;
    if (!readCount(reader, "SONGS", Limits::maxSongs, fileSize, 18, songCount)) return false;
    if (progress) progress(0, songCount);
    if (checkDisk) context.mountedFiles.emplace(context.root);

    std::vector<Song> readSongs;
    readSongs.reserve(songCount);
    for (std::uint64_t i = 0; i < songCount; ++i) {
        if (reader.next(line) != LineReader::Result::Line) return false;
        std::array<std::string_view, 7> fields;
        if (!splitFields(line, fields) || fields[0] != "SONG") return false;
        const auto id = parseUnsigned(fields[1], Limits::maxSongs);
        if (!id || *id != i + 1) return false;

        Song song;
        song.id = static_cast<std::int32_t>(*id);
        if (!decodePath(context, fields[2], PathKind::Media, scratch, song.path)) return false;
        if (!readSongs.empty() && !(readSongs.back().path < song.path)) return false;
        unescapeInto(fields[3], song.title);
        unescapeInto(fields[4], song.artist);
        unescapeInto(fields[5], song.format);
        if (!fields[6].empty() && !decodePath(context, fields[6], PathKind::Graphics, scratch, song.cdgPath)) {
            return false;
        }
        readSongs.push_back(std::move(song));
        if (progress && ((i + 1) % 256 == 0 || i + 1 == songCount)) progress(i + 1, songCount);
    }

    for (;;) {
        const LineReader::Result result = reader.next(line);
        if (result == LineReader::Result::End) break;
        if (result == LineReader::Result::Fail || !line.empty()) return false;
    }
    if (!directoriesValid(context, readStamps)) return false;

    if (formatUpgradeNeeded != nullptr) *formatUpgradeNeeded = context.v4;
    stamps = std::move(readStamps);
    songs = std::move(readSongs);
    return true;
}

// ---- writing ---------------------------------------------------------------

// Buffers records and checks each against the record and file limits.
class RecordWriter {
public:
    explicit RecordWriter(int fd) : fd_(fd) { buffer_.reserve(kFlushBytes + Limits::maxRecordBytes); }

    std::string& record() { return record_; }

    bool commitRecord() {
        record_ += '\n';
        if (record_.size() > Limits::maxRecordBytes) return false;
        position_ += record_.size();
        if (position_ > Limits::maxFileBytes) return false;
        buffer_ += record_;
        record_.clear();
        return buffer_.size() < kFlushBytes || flush();
    }

    bool flush() {
        if (!writeAll(fd_, buffer_)) return false;
        buffer_.clear();
        return true;
    }

private:
    static constexpr std::size_t kFlushBytes = 1u << 20;
    int fd_;
    std::string buffer_;
    std::string record_;
    std::uint64_t position_ = 0;
};

void appendEscaped(std::string& out, std::string_view text) {
    for (char c : text) {
        switch (c) {
            case '\\': out += "\\\\"; break;
            case '\t': out += "\\t"; break;
            case '\n': out += "\\n"; break;
            case '\r': out += "\\r"; break;
            default: out += c; break;
        }
    }
}

void appendNumber(std::string& out, auto value) {
    std::array<char, 24> digits;
    const auto result = std::to_chars(digits.data(), digits.data() + digits.size(), value);
    out.append(digits.data(), result.ptr);
}

// The path's text after prefix, when it lies there and is longer.
bool relativeText(std::string_view path, std::string_view prefix, std::string_view& relative) {
    if (path.size() <= prefix.size() || path.substr(0, prefix.size()) != prefix) return false;
    relative = path.substr(prefix.size());
    return true;
}

std::string temporaryCachePath(const fs::path& cachePath) {
    const auto ticks = std::chrono::duration_cast<std::chrono::nanoseconds>(
                           std::chrono::steady_clock::now().time_since_epoch())
                           .count();
    const auto tid = static_cast<std::uint32_t>(::gettid());
    const char tidBytes[4] = {static_cast<char>(tid & 0xFF), static_cast<char>((tid >> 8) & 0xFF),
                              static_cast<char>((tid >> 16) & 0xFF), static_cast<char>((tid >> 24) & 0xFF)};
    std::string path = cachePath.string();
    path += ".tmp.";
    appendNumber(path, static_cast<std::int64_t>(ticks));
    path += '.';
    appendNumber(path, fnv1a(std::string_view(tidBytes, 4)));
    return path;
}

bool writeRecords(RecordWriter& writer, const std::string& rootText, const std::string& prefix,
                  const MediaIndexSnapshot& snapshot) {
    std::string& record = writer.record();
    record.assign(kMediaIndexMagicV5);
    if (!writer.commitRecord()) return false;
    record.assign("ROOT\t");
    appendEscaped(record, rootText);
    if (!writer.commitRecord()) return false;
    record.assign("DIRS\t");
    appendNumber(record, static_cast<std::uint64_t>(snapshot.stamps.size()));
    if (!writer.commitRecord()) return false;
    for (const DirectoryStamp& stamp : snapshot.stamps) {
        record.assign("DIR\t");
        appendEscaped(record, stamp.key);
        record += '\t';
        appendNumber(record, stamp.timestamp);
        record += '\t';
        appendNumber(record, stamp.nameCount);
        record += '\t';
        appendNumber(record, stamp.nameHash);
        if (!writer.commitRecord()) return false;
    }
    record.assign("SONGS\t");
    appendNumber(record, static_cast<std::uint64_t>(snapshot.songs.size()));
    if (!writer.commitRecord()) return false;
    std::uint64_t id = 0;
    for (const Song& song : snapshot.songs) {
        std::string_view media;
        std::string_view graphics;
        if (!relativeText(song.path, prefix, media)) return false;
        if (!song.cdgPath.empty() && !relativeText(song.cdgPath, prefix, graphics)) return false;
        record.assign("SONG\t");
        appendNumber(record, ++id);
        record += '\t';
        appendEscaped(record, media);
        record += '\t';
        appendEscaped(record, song.title);
        record += '\t';
        appendEscaped(record, song.artist);
        record += '\t';
        appendEscaped(record, song.format);
        record += '\t';
        appendEscaped(record, graphics);
        if (!writer.commitRecord()) return false;
    }
    return writer.flush();
}

}  // namespace

std::string escapeCacheField(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    appendEscaped(out, text);
    return out;
}

std::string unescapeCacheField(std::string_view text) {
    std::string out;
    unescapeInto(text, out);
    return out;
}

bool readMediaIndexCache(const fs::path& cachePath, const fs::path& root, std::vector<DirectoryStamp>& stamps,
                         std::vector<Song>& songs, bool* formatUpgradeNeeded, const ScanProgress& progress,
                         bool checkDisk) {
    stamps.clear();
    songs.clear();
    if (formatUpgradeNeeded != nullptr) *formatUpgradeNeeded = false;
    try {
        if (readCache(cachePath, root, stamps, songs, formatUpgradeNeeded, progress, checkDisk)) return true;
    } catch (...) {
    }
    stamps.clear();
    songs.clear();
    if (formatUpgradeNeeded != nullptr) *formatUpgradeNeeded = false;
    return false;
}

void writeMediaIndexCache(const fs::path& cachePath, const fs::path& root, const MediaIndexSnapshot& snapshot) {
    if (snapshot.stamps.size() > Limits::maxDirectories || snapshot.songs.size() > Limits::maxSongs) return;
    std::string temporary;
    try {
        if (cachePath.empty()) return;
        std::error_code ignored;
        if (cachePath.has_parent_path()) fs::create_directories(cachePath.parent_path(), ignored);

        const std::string rootText = root.string();
        if (rootText.empty()) return;
        const std::string prefix = joinPrefix(rootText);

        temporary = temporaryCachePath(cachePath);
        UniqueFd fd(::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY, 0666));
        if (!fd.valid()) return;  // never created, so nothing to remove
        bool written = false;
        {
            RecordWriter writer(fd.get());
            written = writeRecords(writer, rootText, prefix, snapshot);
        }
        struct stat st {};
        written = written && ::fsync(fd.get()) == 0 && ::fstat(fd.get(), &st) == 0 &&
                  static_cast<std::uint64_t>(st.st_size) <= Limits::maxFileBytes;
        written = fd.close() && written;
        if (written && renameReplacing(temporary, cachePath)) return;
    } catch (...) {
    }
    removeQuietly(temporary);
}

}  // namespace tamo::core
