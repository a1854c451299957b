#include "verified_write.h"

#include "file_kind.h"
#include "temporary_name.h"
#include "unique_fd.h"
#include "verified_create.h"

#include <array>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace tamo::core {
namespace {

bool readBackEquals(int fd, std::string_view expected) {
    if (::lseek(fd, 0, SEEK_SET) != 0) return false;
    std::array<char, kTransferBlock> block;
    while (!expected.empty()) {
        const std::size_t chunk = expected.size() < block.size() ? expected.size() : block.size();
        const long got = readSome(fd, block.data(), chunk);
        if (got <= 0 || static_cast<std::size_t>(got) > chunk) return false;
        if (std::memcmp(block.data(), expected.data(), static_cast<std::size_t>(got)) != 0) return false;
        expected.remove_prefix(static_cast<std::size_t>(got));
    }
    return readSome(fd, block.data(), 1) == 0;
}

}  // namespace

bool writeVerifiedTemporary(const std::filesystem::path& target, std::string_view bytes,
                            std::filesystem::path& temporaryPath) {
    temporaryPath.clear();
    try {
        CreatedTemporary created = createNewTemporary(target, kWriteTemporaryMarker);
        if (!created.fd.valid()) return false;
        TemporaryGuard guard(created.path);

        if (!writeAll(created.fd.get(), bytes)) return false;
        if (::fsync(created.fd.get()) != 0) return false;
        if (!readBackEquals(created.fd.get(), bytes)) return false;
        if (!created.fd.close()) return false;
        if (getFileKind(created.path) != FileKind::RegularFile) return false;

        guard.disarm();
        temporaryPath = std::move(created.path);
        return true;
    } catch (...) {
        temporaryPath.clear();
        return false;
    }
}

}  // namespace tamo::core
