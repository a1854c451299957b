#include "media_index_scan.h"

#include "build_song.h"
#include "fnv1a.h"
#include "media_kinds.h"
#include "media_scan_error.h"
#include "media_scan_limits.h"
#include "media_tree.h"
#include "unique_fd.h"
#include "worker_count.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <exception>
#include <fcntl.h>
#include <mutex>
#include <thread>
#include <unistd.h>
#include <unordered_set>
#include <utility>

namespace tamo::core {
namespace fs = std::filesystem;
using namespace media_tree;

namespace {

constexpr const char* kUnsafeText = "Media folder changed or became unsafe during scan";
constexpr const char* kResolveSubfolderText = "Could not resolve media subfolder";
constexpr const char* kEscapedText = "Media subfolder escaped its root";
constexpr const char* kTimestampText = "Could not read media-folder timestamp";
constexpr const char* kChangedText = "Media folder changed during scan";
constexpr const char* kFileEscapedText = "Media file escaped its root during scan";
constexpr const char* kUnstableText = "Media folder did not stabilize during scan";

constexpr std::size_t kBlock = 256;

// The tree being walked: the root as the walk spells its paths, its
// canonical form for the escape test, and the mount it lives on.
struct Tree {
    std::string root;
    std::string prefix;
    std::string canonicalRoot;
    std::string canonicalPrefix;
    MountIdentity mount;
    MountedFiles mountedFiles;
};

std::string walkRoot(const fs::path& root) {
    std::error_code ec;
    fs::path absolute = fs::absolute(root, ec);
    if (ec) throwScanError(kResolveSubfolderText, root, ec.value());
    std::string text = absolute.lexically_normal().string();
    while (text.size() > 1 && text.back() == '/') text.pop_back();
    return text;
}

// The root meets the same guard as every folder below it, and before its
// canonical form is asked for: a missing root is unsafe, not unresolvable.
Tree openTree(const fs::path& root) {
    std::string walk = walkRoot(root);
    struct statx st {};
    if (const int error = statEntry(AT_FDCWD, walk.c_str(), 0, st); error != 0) {
        throwScanError(kUnsafeText, walk, error);
    }
    if (!isDirectory(st)) throwScanError(kUnsafeText, walk, std::errc::io_error);
    std::string canonical = canonicalPath(walk);
    if (canonical.empty()) throwScanError(kResolveSubfolderText, walk, errno);
    std::string prefix = joinPrefix(walk);
    std::string canonicalPrefix = joinPrefix(canonical);
    MountedFiles mounted(canonical);
    return Tree{std::move(walk), std::move(prefix), std::move(canonical), std::move(canonicalPrefix),
                mountIdentityOf(st), std::move(mounted)};
}

struct Counters {
    std::uint64_t entries = 0;
    std::uint64_t directories = 1;
    std::uint64_t candidates = 0;
};

// The fingerprint input of one directory, kept in one buffer: a large tree
// has hundreds of thousands of names and they live only until hashed.
class NameList {
public:
    void add(std::string_view name, bool folder) {
        spans_.emplace_back(bytes_.size(), name.size() + (folder ? 1 : 0));
        bytes_.append(name);
        if (folder) bytes_ += '/';
    }
    std::size_t size() const { return spans_.size(); }

    // FNV-1a over the names in byte order, with one more multiplication by
    // the prime after each name as if a zero byte ended it, so that "ab","c"
    // and "a","bc" differ.
    std::uint64_t sortedHash() {
        const auto view = [this](const std::pair<std::size_t, std::size_t>& span) {
            return std::string_view(bytes_).substr(span.first, span.second);
        };
        std::sort(spans_.begin(), spans_.end(), [&](const auto& a, const auto& b) { return view(a) < view(b); });
        std::uint64_t hash = kFnvOffset;
        for (const auto& span : spans_) hash = fnv1a(view(span), hash) * kFnvPrime;
        return hash;
    }

private:
    std::string bytes_;
    std::vector<std::pair<std::size_t, std::size_t>> spans_;
};

struct ScannedDirectory {
    std::vector<std::string> subdirectories;
    std::vector<std::string> mediaFiles;
    NameList names;
    std::unordered_set<std::string> graphicsStems;
    std::uint64_t mediaCount = 0;
    std::int64_t timestamp = 0;
};

// What a walk keeps of each directory besides its fingerprint.
enum class Listing {
    FingerprintOnly,  // names only
    TrustedPairs,     // names and media files
    CheckedPairs,     // names, media files and the stems of graphics files
};

// Before each directory is read: it must still be a plain directory on the
// tree's mount and resolve to the root or below it. Returns a descriptor of
// exactly the directory that was checked, so the listing reads that one.
// A link is opened as itself, so that it fails as what it is (no system
// error) rather than with the error of following it.
UniqueFd guardDirectory(const Tree& tree, const std::string& path) {
    UniqueFd handle(::open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!handle.valid()) throwScanError(kUnsafeText, path, errno);
    struct statx st {};
    if (const int error = statEntry(handle.get(), "", 0, st); error != 0) throwScanError(kUnsafeText, path, error);
    if (!isDirectory(st) || !onSameMount(st, tree.mount)) throwScanError(kUnsafeText, path, std::errc::io_error);

    std::string canonical = canonicalPathOf(handle.get());
    if (canonical.empty()) canonical = canonicalPath(path);
    if (canonical.empty()) throwScanError(kResolveSubfolderText, path, errno);
    if (canonical != tree.canonicalRoot && !liesBelow(canonical, tree.canonicalPrefix)) {
        throwScanError(kEscapedText, path, std::errc::invalid_argument);
    }
    return handle;
}

std::string relativeKey(const Tree& tree, const std::string& path) {
    if (path == tree.root) return ".";
    if (!liesBelow(path, tree.prefix)) throwScanError(kEscapedText, path, std::errc::invalid_argument);
    return path.substr(tree.prefix.size());
}

// 0 when path is a plain file on the tree's mount (not a link, not a mount
// point), else an error code.
int inspectPlainFile(const Tree& tree, const std::string& path) {
    struct statx st {};
    if (const int error = statEntry(AT_FDCWD, path.c_str(), 0, st); error != 0) return error;
    if (!isRegular(st) || !onSameMount(st, tree.mount)) return EIO;
    if (tree.mountedFiles.any() && tree.mountedFiles.contains(path)) return EIO;
    return 0;
}

// Lists one directory. Only subfolders, media and graphics files enter the
// fingerprint names; everything else plays no part at all.
ScannedDirectory readDirectory(const Tree& tree, const std::string& path, Counters& counters, Listing listing) {
    UniqueFd handle = guardDirectory(tree, path);

    // The time comes first: a change made while the listing opens must show.
    ScannedDirectory scanned;
    struct statx before {};
    if (const int error = statEntry(handle.get(), "", STATX_MTIME, before); error != 0) {
        throwScanError(kTimestampText, path, error);
    }
    scanned.timestamp = lastWriteTicks(before);

    const int raw = ::openat(handle.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (raw < 0) throwScanError(scan_text::kOpen, path, errno);
    DirectoryStream stream;
    if (const int error = stream.open(raw); error != 0) throwScanError(scan_text::kOpen, path, error);
    handle.reset();

    const std::string prefix = joinPrefix(path);
    int error = 0;
    while (const dirent* entry = stream.next(error)) {
        if (counters.entries >= MediaScanLimits::maxEntries) throwScanError(kEntryLimitText, path, kScanLimitCode);
        ++counters.entries;

        const std::string_view name(entry->d_name);
        unsigned char type = entry->d_type;
        if (type == DT_UNKNOWN || type == DT_DIR) {
            struct statx st {};
            if (const int inspect = statEntry(stream.fd(), entry->d_name, 0, st); inspect != 0) {
                throwScanError(scan_text::kInspect, prefix + entry->d_name, inspect);
            }
            if (S_ISLNK(st.stx_mode)) continue;
            if (isDirectory(st)) {
                if (!onSameMount(st, tree.mount)) continue;
                type = DT_DIR;
            } else {
                type = isRegular(st) ? DT_REG : DT_UNKNOWN;
            }
        }

        if (type == DT_DIR) {
            scanned.subdirectories.push_back(prefix + entry->d_name);
            scanned.names.add(name, true);
            continue;
        }
        if (type != DT_REG) continue;

        const std::string_view extension = extensionOf(name);
        const bool media = isMediaExtension(extension);
        const bool graphics = !media && isGraphicsExtension(extension);
        if (!media && !graphics) continue;
        if (tree.mountedFiles.any() && tree.mountedFiles.contains(prefix + entry->d_name)) continue;

        scanned.names.add(name, false);
        if (media) {
            ++scanned.mediaCount;
            if (listing != Listing::FingerprintOnly) scanned.mediaFiles.push_back(prefix + entry->d_name);
        } else if (listing == Listing::CheckedPairs) {
            scanned.graphicsStems.emplace(stemOf(name));
        }
    }
    if (error != 0) throwScanError(scan_text::kUnreadable, path, error);

    struct statx after {};
    if (const int again = statEntry(stream.fd(), "", STATX_MTIME, after); again != 0) {
        throwScanError(kTimestampText, path, again);
    }
    if (lastWriteTicks(after) != scanned.timestamp) throwScanError(kChangedText, path, std::errc::io_error);

    std::sort(scanned.subdirectories.begin(), scanned.subdirectories.end());
    std::sort(scanned.mediaFiles.begin(), scanned.mediaFiles.end());
    return scanned;
}

DirectoryStamp stampOf(std::string key, ScannedDirectory& scanned) {
    const std::uint64_t hash = scanned.names.sortedHash();
    return DirectoryStamp{std::move(key), scanned.timestamp, scanned.names.size(), hash};
}

// Within a folder that has graphics: the exact ".cdg" or ".CDG" sibling if it
// is a plain file, else any capitalisation of ".cdg" with the same stem.
bool pairCheck(const Tree& tree, const std::string& mediaPath, const ScannedDirectory& scanned) {
    if (scanned.graphicsStems.empty()) return false;
    const std::string_view name = fileNameOf(mediaPath);
    const std::string_view stem = stemOf(name);
    const std::string base = mediaPath.substr(0, mediaPath.size() - (name.size() - stem.size()));
    if (inspectPlainFile(tree, base + ".cdg") == 0 || inspectPlainFile(tree, base + ".CDG") == 0) return true;
    return scanned.graphicsStems.count(std::string(stem)) != 0;
}

struct Walk {
    std::vector<DirectoryStamp> stamps;
    std::vector<ScanCandidate> candidates;
    std::uint64_t mediaTotal = 0;
};

Walk walkTree(const Tree& tree, const ScanProgress& progress, Listing listing) {
    Walk walk;
    Counters counters;
    std::vector<std::pair<std::string, std::uint64_t>> work;
    work.emplace_back(tree.root, 0);
    for (std::size_t next = 0; next < work.size(); ++next) {
        const std::string path = work[next].first;
        const std::uint64_t depth = work[next].second;
        ScannedDirectory scanned = readDirectory(tree, path, counters, listing);

        walk.mediaTotal += scanned.mediaCount;
        if (progress) progress(walk.mediaTotal, 0);

        if (listing != Listing::FingerprintOnly) {
            for (std::string& media : scanned.mediaFiles) {
                if (counters.candidates >= MediaScanLimits::maxSongs) throwScanError(kSongLimitText, media, kScanLimitCode);
                ++counters.candidates;
                const bool paired = listing == Listing::TrustedPairs || pairCheck(tree, media, scanned);
                walk.candidates.push_back(ScanCandidate{std::move(media), paired});
            }
        }

        walk.stamps.push_back(stampOf(relativeKey(tree, path), scanned));

        for (std::string& subdirectory : scanned.subdirectories) {
            if (depth + 1 > MediaScanLimits::maxDepth) throwScanError(kDepthLimitText, subdirectory, kScanLimitCode);
            if (counters.directories >= MediaScanLimits::maxDirectories) {
                throwScanError(kDirectoryLimitText, subdirectory, kScanLimitCode);
            }
            ++counters.directories;
            work.emplace_back(std::move(subdirectory), depth + 1);
        }
        // Keep the work list from holding every path of the tree at once.
        work[next].first.clear();
        work[next].first.shrink_to_fit();
    }
    std::sort(walk.stamps.begin(), walk.stamps.end(),
              [](const DirectoryStamp& a, const DirectoryStamp& b) { return a.key < b.key; });
    return walk;
}

// Without trusted pairs each file is looked at once more: still a plain
// file on the tree's mount, still below the root.
// The candidate is used up: a trusted path moves into its song.
Song makeSong(const Tree& tree, ScanCandidate& candidate, bool trustPairs) {
    if (trustPairs) return buildFastSong(std::move(candidate.path));
    if (const int error = inspectPlainFile(tree, candidate.path); error != 0) {
        throwScanError(scan_text::kFileUnreadable, candidate.path, error);
    }
    if (!liesBelow(candidate.path, tree.prefix)) {
        throwScanError(kFileEscapedText, candidate.path, std::errc::invalid_argument);
    }
    return buildSong(0, candidate.path, candidate.pairKnown);
}

std::vector<Song> makeSongs(const Tree& tree, std::vector<ScanCandidate>& candidates,
                            const ScanProgress& progress, bool trustPairs) {
    const std::size_t total = candidates.size();
    std::vector<Song> songs(total);
    const unsigned workers = chooseWorkerCount("TAMO_MEDIA_INDEX_WORKERS", total / kBlock);

    if (workers < 2 || total < 2 * kBlock) {
        for (std::size_t i = 0; i < total; ++i) {
            songs[i] = makeSong(tree, candidates[i], trustPairs);
            if (progress && ((i + 1) % kBlock == 0 || i + 1 == total)) progress(i + 1, total);
        }
        return songs;
    }

    std::atomic<std::size_t> nextBlock{0};
    std::atomic<bool> failed{false};
    std::mutex failureMutex;
    std::exception_ptr failure;
    {
        const auto work = [&](std::stop_token stop) {
            for (;;) {
                if (stop.stop_requested() || failed.load(std::memory_order_relaxed)) return;
                const std::size_t begin = nextBlock.fetch_add(kBlock, std::memory_order_relaxed);
                if (begin >= total) return;
                const std::size_t end = std::min(begin + kBlock, total);
                for (std::size_t i = begin; i < end; ++i) {
                    if (stop.stop_requested() || failed.load(std::memory_order_relaxed)) return;
                    try {
                        songs[i] = makeSong(tree, candidates[i], trustPairs);
                    } catch (...) {
                        std::lock_guard lock(failureMutex);
                        if (!failure) failure = std::current_exception();
                        failed.store(true, std::memory_order_relaxed);
                        return;
                    }
                }
            }
        };
        // Joined explicitly: a jthread's destructor asks its worker to stop
        // first, which is only wanted when this scope is abandoned.
        std::vector<std::jthread> threads;
        threads.reserve(workers);
        for (unsigned w = 0; w < workers; ++w) threads.emplace_back(work);
        for (std::jthread& thread : threads) thread.join();
    }
    if (failure) std::rethrow_exception(failure);
    if (progress) progress(total, total);
    return songs;
}

}  // namespace

MediaIndexSnapshot buildMediaIndex(const fs::path& root, const ScanProgress& progress, bool trustPairs) {
    const Tree tree = openTree(root);
    Walk walk = walkTree(tree, progress, trustPairs ? Listing::TrustedPairs : Listing::CheckedPairs);
    if (progress) progress(0, walk.candidates.size());

    // Sorting the candidates first leaves the songs in order already; the
    // check below only guards against a path that a song changed.
    std::sort(walk.candidates.begin(), walk.candidates.end(),
              [](const ScanCandidate& a, const ScanCandidate& b) { return a.path < b.path; });
    MediaIndexSnapshot snapshot;
    snapshot.songs = makeSongs(tree, walk.candidates, progress, trustPairs);
    walk.candidates = {};
    const auto byPath = [](const Song& a, const Song& b) { return a.path < b.path; };
    if (!std::is_sorted(snapshot.songs.begin(), snapshot.songs.end(), byPath)) {
        std::sort(snapshot.songs.begin(), snapshot.songs.end(), byPath);
    }
    for (std::size_t i = 0; i < snapshot.songs.size(); ++i) snapshot.songs[i].id = static_cast<std::int32_t>(i + 1);
    snapshot.stamps = std::move(walk.stamps);
    return snapshot;
}

std::vector<DirectoryStamp> fingerprintMediaFolder(const fs::path& root, const ScanProgress& progress) {
    const Tree tree = openTree(root);
    Walk walk = walkTree(tree, progress, Listing::FingerprintOnly);
    if (progress) progress(walk.mediaTotal, walk.mediaTotal);
    return std::move(walk.stamps);
}

bool directoryStampsMatch(const fs::path& root, const std::vector<DirectoryStamp>& stamps,
                          const ScanProgress& progress) {
    std::error_code ec;
    if (!fs::is_directory(root, ec) || ec) return false;
    const std::vector<DirectoryStamp> fresh = fingerprintMediaFolder(root, progress);
    if (fresh.size() != stamps.size()) return false;
    for (std::size_t i = 0; i < fresh.size(); ++i) {
        if (fresh[i].key != stamps[i].key || fresh[i].nameCount != stamps[i].nameCount ||
            fresh[i].nameHash != stamps[i].nameHash) {
            return false;
        }
    }
    return true;
}

MediaIndexSnapshot scanStable(const fs::path& root, const ScanProgress& progress, bool trustPairs) {
    constexpr int kAttempts = 3;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        try {
            MediaIndexSnapshot snapshot = buildMediaIndex(root, progress, trustPairs);
            if (directoryStampsMatch(root, snapshot.stamps, progress)) return snapshot;
        } catch (const fs::filesystem_error& error) {
            if (error.code() == std::make_error_code(kScanLimitCode) || attempt + 1 == kAttempts) throw;
        }
    }
    throwScanError(kUnstableText, root, std::errc::state_not_recoverable);
}

}  // namespace tamo::core
