#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string_view>

namespace tamo::core {

// Owns one POSIX file descriptor and closes it when it goes away.
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    ~UniqueFd() { reset(); }
    UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        if (this != &other) reset(other.release());
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;

    int get() const { return fd_; }
    bool valid() const { return fd_ >= 0; }
    int release() {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }
    void reset(int fd = -1);
    // Closes now and reports whether close() succeeded; some file systems
    // only report a failed write at close.
    bool close();

private:
    int fd_ = -1;
};

// Block size of every durable transfer.
inline constexpr std::size_t kTransferBlock = 65536;

// Writes all bytes in blocks of at most kTransferBlock, retrying EINTR.
bool writeAll(int fd, std::string_view bytes);
// Reads exactly size bytes into out; fails on error or early end.
bool readExactly(int fd, char* out, std::size_t size);
// One read of up to size bytes, retrying EINTR; -1 on error.
long readSome(int fd, char* out, std::size_t size);
// Opens a path that must already be a plain file, never following a link
// and never blocking on a FIFO; the descriptor is checked, not the name.
UniqueFd openRegularForRead(const std::filesystem::path& path, std::uint64_t* size = nullptr);
// fsync of the folder holding path, so that a rename in it is durable.
bool syncParentDirectory(const std::filesystem::path& path);
// rename() over an existing target, then fsync of the folder.
bool renameReplacing(const std::filesystem::path& from, const std::filesystem::path& to);
// Removes a file, ignoring every failure.
void removeQuietly(const std::filesystem::path& path);

}  // namespace tamo::core
