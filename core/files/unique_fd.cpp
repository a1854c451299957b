#include "unique_fd.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tamo::core {

void UniqueFd::reset(int fd) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
}

bool UniqueFd::close() {
    if (fd_ < 0) return false;
    const int fd = release();
    // On Linux the descriptor is gone even when close() reports EINTR.
    return ::close(fd) == 0;
}

bool writeAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const std::size_t chunk = bytes.size() < kTransferBlock ? bytes.size() : kTransferBlock;
        const ssize_t written = ::write(fd, bytes.data(), chunk);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0 || static_cast<std::size_t>(written) > chunk) return false;
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

long readSome(int fd, char* out, std::size_t size) {
    for (;;) {
        const ssize_t got = ::read(fd, out, size);
        if (got < 0 && errno == EINTR) continue;
        return static_cast<long>(got);
    }
}

bool readExactly(int fd, char* out, std::size_t size) {
    while (size > 0) {
        const std::size_t chunk = size < kTransferBlock ? size : kTransferBlock;
        const long got = readSome(fd, out, chunk);
        if (got <= 0 || static_cast<std::size_t>(got) > chunk) return false;
        out += got;
        size -= static_cast<std::size_t>(got);
    }
    return true;
}

UniqueFd openRegularForRead(const std::filesystem::path& path, std::uint64_t* size) {
    if (path.empty()) return {};
    UniqueFd fd(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!fd.valid()) return {};
    struct stat st {};
    if (::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode) || st.st_size < 0) return {};
    // O_NONBLOCK only kept a FIFO from stalling the open; plain reads follow.
    const int flags = ::fcntl(fd.get(), F_GETFL);
    if (flags < 0 || ::fcntl(fd.get(), F_SETFL, flags & ~O_NONBLOCK) != 0) return {};
    if (size != nullptr) *size = static_cast<std::uint64_t>(st.st_size);
    return fd;
}

bool syncParentDirectory(const std::filesystem::path& path) {
    std::filesystem::path parent = path.parent_path();
    if (parent.empty()) parent = ".";
    UniqueFd dir(::open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!dir.valid()) return false;
    return ::fsync(dir.get()) == 0;
}

bool renameReplacing(const std::filesystem::path& from, const std::filesystem::path& to) {
    if (from.empty() || to.empty()) return false;
    if (::rename(from.c_str(), to.c_str()) != 0) return false;
    return syncParentDirectory(to);
}

void removeQuietly(const std::filesystem::path& path) {
    if (!path.empty()) ::unlink(path.c_str());
}

}  // namespace tamo::core
