#include "media_folder_scan.h"

#include "build_song.h"
#include "media_kinds.h"
#include "media_scan_error.h"
#include "media_scan_limits.h"
#include "media_tree.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <string>
#include <unordered_set>
#include <utility>

namespace tamo::core {
namespace fs = std::filesystem;
using namespace media_tree;

namespace {


// Opens a directory of the tree for listing, refusing a link or another
// mount that took its place since it was listed; errno on failure.
int openListing(const std::string& path, const MountIdentity& mount, DirectoryStream& stream) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) return errno;
    if (const int error = stream.open(fd); error != 0) return error;
    struct statx st {};
    if (const int error = statEntry(stream.fd(), "", 0, st); error != 0) return error;
    if (!isDirectory(st) || !onSameMount(st, mount)) return EIO;
    return 0;
}

}  // namespace

std::vector<Song> scanMediaFolder(const fs::path& root) {
    const std::string canonical = canonicalPath(root.string());
    if (canonical.empty()) throwScanError(scan_text::kResolve, root, errno);
    struct statx rootStat {};
    if (const int error = statEntry(AT_FDCWD, canonical.c_str(), 0, rootStat); error != 0) {
        throwScanError(scan_text::kResolve, root, error);
    }
    if (!isDirectory(rootStat)) throwScanError(scan_text::kNotDirectory, root, std::errc::io_error);
    const MountIdentity mount = mountIdentityOf(rootStat);
    const MountedFiles mountedFiles(canonical);

    std::uint64_t entries = 0;
    std::uint64_t directories = 1;
    std::vector<std::string> media;
    std::unordered_set<std::string> graphicsBases;

    // Depth-first, as a recursive iterator would go; depth is that of the
    // entries inside the folder.
    std::vector<std::pair<std::string, std::uint64_t>> pending;
    pending.emplace_back(canonical, 0);
    bool atRoot = true;
    while (!pending.empty()) {
        auto [path, depth] = std::move(pending.back());
        pending.pop_back();
        DirectoryStream stream;
        if (const int error = openListing(path, mount, stream); error != 0) {
            throwScanError(atRoot ? scan_text::kOpen : scan_text::kUnreadable, path, error);
        }
        atRoot = false;

        const std::string prefix = joinPrefix(path);
        std::vector<std::string> subdirectories;
        int error = 0;
        while (const dirent* entry = stream.next(error)) {
            if (entries >= MediaScanLimits::maxEntries) throwScanError(kEntryLimitText, path, kScanLimitCode);
            ++entries;

            unsigned char type = entry->d_type;
            if (type == DT_UNKNOWN || type == DT_DIR) {
                struct statx st {};
                if (const int inspect = statEntry(stream.fd(), entry->d_name, 0, st); inspect != 0) {
                    throwScanError(scan_text::kInspect, prefix + entry->d_name, inspect);
                }
                if (S_ISLNK(st.stx_mode)) continue;
                if (isDirectory(st)) {
                    if (!onSameMount(st, mount)) continue;
                    type = DT_DIR;
                } else {
                    type = isRegular(st) ? DT_REG : DT_UNKNOWN;
                }
            }

            if (type == DT_DIR) {
                std::string subdirectory = prefix + entry->d_name;
                if (depth + 1 > MediaScanLimits::maxDepth) throwScanError(kDepthLimitText, subdirectory, kScanLimitCode);
                if (directories >= MediaScanLimits::maxDirectories) {
                    throwScanError(kDirectoryLimitText, subdirectory, kScanLimitCode);
                }
                ++directories;
                subdirectories.push_back(std::move(subdirectory));
                continue;
            }
            if (type != DT_REG) continue;

            const std::string_view name(entry->d_name);
            const std::string_view extension = extensionOf(name);
            const bool isMedia = isMediaExtension(extension);
            if (!isMedia && !isGraphicsExtension(extension)) continue;
            std::string full = prefix + entry->d_name;
            if (mountedFiles.any() && mountedFiles.contains(full)) continue;
            if (isMedia) {
                if (media.size() >= MediaScanLimits::maxSongs) throwScanError(kSongLimitText, full, kScanLimitCode);
                media.push_back(std::move(full));
            } else {
                full.resize(full.size() - extension.size());
                graphicsBases.insert(std::move(full));
            }
        }
        if (error != 0) throwScanError(scan_text::kUnreadable, path, error);
        // Reverse order on the stack keeps the walk in name order.
        std::sort(subdirectories.begin(), subdirectories.end(), std::greater<>());
        for (std::string& subdirectory : subdirectories) pending.emplace_back(std::move(subdirectory), depth + 1);
    }

    // Identities follow path order here; the index scan numbers by bytes.
    std::sort(media.begin(), media.end(),
              [](const std::string& a, const std::string& b) { return pathOrderLess(a, b); });
    std::vector<Song> songs;
    songs.reserve(media.size());
    std::int32_t id = 0;
    for (const std::string& path : media) {
        struct statx st {};
        if (const int error = statEntry(AT_FDCWD, path.c_str(), 0, st); error != 0) {
            throwScanError(scan_text::kFileUnreadable, path, error);
        }
        if (!isRegular(st)) throwScanError(scan_text::kFileUnreadable, path, std::errc::io_error);
        const std::string_view extension = extensionOf(fileNameOf(path));
        const bool paired = graphicsBases.count(path.substr(0, path.size() - extension.size())) != 0;
        songs.push_back(buildSong(++id, path, paired));
    }
    return songs;
}

}  // namespace tamo::core
