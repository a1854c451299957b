#pragma once

// Low-level pieces shared by the two media scanners: reading directories
// through descriptors, telling apart what may be followed, and file name
// parts without building std::filesystem::path objects per entry.

#include <cstdint>
#include <dirent.h>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unordered_set>

namespace tamo::core::media_tree {

// The mount a tree lives on. Anything on another mount (a mount point,
// bind mounts included) can lead out of the tree and is skipped.
struct MountIdentity {
    std::uint64_t deviceMajor = 0;
    std::uint64_t deviceMinor = 0;
    std::uint64_t mountId = 0;
    bool hasMountId = false;
};

// statx without following a final link; errno on failure, else 0.
int statEntry(int dirfd, const char* name, unsigned mask, struct statx& out);
MountIdentity mountIdentityOf(const struct statx& st);
bool onSameMount(const struct statx& st, const MountIdentity& tree);
bool isDirectory(const struct statx& st);
bool isRegular(const struct statx& st);
// Last-write time as 100 ns ticks since the Unix epoch.
std::int64_t lastWriteTicks(const struct statx& st);

// File mount points inside a tree, read from /proc/self/mountinfo once per
// walk. Directory mount points are caught by their mount identity; a single
// bind-mounted file shows nothing of the kind in its folder's listing.
class MountedFiles {
public:
    explicit MountedFiles(const std::string& canonicalRoot);
    bool any() const { return !paths_.empty(); }
    bool contains(const std::string& fullPath) const { return paths_.count(fullPath) != 0; }

private:
    std::unordered_set<std::string> paths_;
};

// The extension including its dot, as std::filesystem names it: empty for
// "name", ".profile", "." and "..".
std::string_view extensionOf(std::string_view fileName);
std::string_view stemOf(std::string_view fileName);
// The last component after "/".
std::string_view fileNameOf(std::string_view path);

// realpath() as a string; empty with errno set on failure.
std::string canonicalPath(const std::string& path);
// Canonical path of an open descriptor; empty on failure.
std::string canonicalPathOf(int fd);

// "root/" for joining names (just "/" for the file system root).
std::string joinPrefix(const std::string& root);
// std::filesystem::path ordering on "/"-separated text: element by element,
// so "a/x" comes before "a b/x" although a blank is a smaller byte than "/".
bool pathOrderLess(std::string_view a, std::string_view b);

// Whether path lies strictly below root: it starts with prefix, has a
// non-empty rest, and no element of the rest is "..".
bool liesBelow(std::string_view path, std::string_view prefix);

// Owns a DIR stream opened from a directory descriptor.
class DirectoryStream {
public:
    DirectoryStream() = default;
    ~DirectoryStream();
    DirectoryStream(const DirectoryStream&) = delete;
    DirectoryStream& operator=(const DirectoryStream&) = delete;

    // Opens the directory for listing; errno on failure, else 0. Takes over fd.
    int open(int fd);
    int fd() const;
    // The next entry other than "." and "..": nullptr at the end (error 0)
    // or on failure (error set).
    const dirent* next(int& error);

private:
    DIR* dir_ = nullptr;
};

}  // namespace tamo::core::media_tree
