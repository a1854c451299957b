#include "media_tree.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

namespace tamo::core::media_tree {

int statEntry(int dirfd, const char* name, unsigned mask, struct statx& out) {
    const int flags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | (name[0] == '\0' ? AT_EMPTY_PATH : 0);
    if (::statx(dirfd, name, flags, mask | STATX_TYPE | STATX_MNT_ID, &out) != 0) return errno == 0 ? EIO : errno;
    if ((out.stx_mask & STATX_TYPE) == 0) return EIO;
    return 0;
}

MountIdentity mountIdentityOf(const struct statx& st) {
    MountIdentity id;
    id.deviceMajor = st.stx_dev_major;
    id.deviceMinor = st.stx_dev_minor;
    id.hasMountId = (st.stx_mask & STATX_MNT_ID) != 0;
    id.mountId = id.hasMountId ? st.stx_mnt_id : 0;
    return id;
}

bool onSameMount(const struct statx& st, const MountIdentity& tree) {
    if (st.stx_dev_major != tree.deviceMajor || st.stx_dev_minor != tree.deviceMinor) return false;
    if (tree.hasMountId && (st.stx_mask & STATX_MNT_ID) != 0 && st.stx_mnt_id != tree.mountId) return false;
    return true;
}

bool isDirectory(const struct statx& st) { return S_ISDIR(st.stx_mode); }
bool isRegular(const struct statx& st) { return S_ISREG(st.stx_mode); }

std::int64_t lastWriteTicks(const struct statx& st) {
    return static_cast<std::int64_t>(st.stx_mtime.tv_sec) * 10000000 +
           static_cast<std::int64_t>(st.stx_mtime.tv_nsec / 100);
}

namespace {

// mountinfo escapes blanks, tabs, new lines and backslashes as \ooo.
std::string decodeMountField(std::string_view field) {
    std::string out;
    out.reserve(field.size());
    for (std::size_t i = 0; i < field.size(); ++i) {
        const auto digit = [&](std::size_t at) { return field[at] >= '0' && field[at] <= '7'; };
        if (field[i] == '\\' && i + 3 < field.size() && digit(i + 1) && digit(i + 2) && digit(i + 3)) {
            out += static_cast<char>(((field[i + 1] - '0') << 6) | ((field[i + 2] - '0') << 3) | (field[i + 3] - '0'));
            i += 3;
            continue;
        }
        out += field[i];
    }
    return out;
}

}  // namespace

MountedFiles::MountedFiles(const std::string& canonicalRoot) {
    const std::string prefix = joinPrefix(canonicalRoot);
    FILE* file = std::fopen("/proc/self/mountinfo", "re");
    if (file == nullptr) return;
    char* line = nullptr;
    std::size_t capacity = 0;
    ssize_t length = 0;
    while ((length = ::getline(&line, &capacity, file)) > 0) {
        std::string_view text(line, static_cast<std::size_t>(length));
        // Fields: id, parent id, major:minor, root, mount point, ...
        std::size_t start = 0;
        for (int field = 0; field < 4 && start != std::string_view::npos; ++field) {
            start = text.find(' ', start);
            if (start != std::string_view::npos) ++start;
        }
        if (start == std::string_view::npos) continue;
        const std::size_t end = text.find(' ', start);
        const std::string point = decodeMountField(text.substr(start, end == std::string_view::npos ? end : end - start));
        if (liesBelow(point, prefix)) paths_.insert(point);
    }
    std::free(line);
    std::fclose(file);
}

std::string_view extensionOf(std::string_view fileName) {
    if (fileName == "." || fileName == "..") return {};
    const std::size_t dot = fileName.rfind('.');
    if (dot == std::string_view::npos || dot == 0) return {};
    return fileName.substr(dot);
}

std::string_view stemOf(std::string_view fileName) {
    return fileName.substr(0, fileName.size() - extensionOf(fileName).size());
}

std::string_view fileNameOf(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

std::string canonicalPath(const std::string& path) {
    char* resolved = ::realpath(path.c_str(), nullptr);
    if (resolved == nullptr) return {};
    std::string out(resolved);
    std::free(resolved);
    return out;
}

std::string canonicalPathOf(int fd) {
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    std::string buffer(PATH_MAX, '\0');
    const ssize_t length = ::readlink(link.c_str(), buffer.data(), buffer.size());
    if (length <= 0 || static_cast<std::size_t>(length) >= buffer.size() || buffer[0] != '/') return {};
    buffer.resize(static_cast<std::size_t>(length));
    return buffer;
}

std::string joinPrefix(const std::string& root) {
    if (!root.empty() && root.back() == '/') return root;
    return root + '/';
}

bool pathOrderLess(std::string_view a, std::string_view b) {
    const std::size_t common = std::min(a.size(), b.size());
    for (std::size_t i = 0; i < common; ++i) {
        if (a[i] == b[i]) continue;
        // An element that ends first is the smaller one.
        if (a[i] == '/') return true;
        if (b[i] == '/') return false;
        return static_cast<unsigned char>(a[i]) < static_cast<unsigned char>(b[i]);
    }
    return a.size() < b.size();
}

bool liesBelow(std::string_view path, std::string_view prefix) {
    if (path.size() <= prefix.size() || path.substr(0, prefix.size()) != prefix) return false;
    std::string_view rest = path.substr(prefix.size());
    if (rest.front() == '/') return false;
    while (!rest.empty()) {
        const std::size_t slash = rest.find('/');
        const std::string_view element = rest.substr(0, slash);
        if (element == "..") return false;
        if (slash == std::string_view::npos) break;
        rest.remove_prefix(slash + 1);
    }
    return true;
}

DirectoryStream::~DirectoryStream() {
    if (dir_ != nullptr) ::closedir(dir_);
}

int DirectoryStream::open(int fd) {
    dir_ = ::fdopendir(fd);
    if (dir_ == nullptr) {
        const int error = errno;
        ::close(fd);
        return error == 0 ? EIO : error;
    }
    return 0;
}

int DirectoryStream::fd() const { return dir_ != nullptr ? ::dirfd(dir_) : -1; }

const dirent* DirectoryStream::next(int& error) {
    for (;;) {
        errno = 0;
        const dirent* entry = ::readdir(dir_);
        if (entry == nullptr) {
            error = errno;
            return nullptr;
        }
        const char* name = entry->d_name;
        if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'))) continue;
        error = 0;
        return entry;
    }
}

}  // namespace tamo::core::media_tree
