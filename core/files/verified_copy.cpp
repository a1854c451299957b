#include "verified_copy.h"

#include "file_kind.h"
#include "temporary_name.h"
#include "unique_fd.h"
#include "verified_create.h"

#include <array>
#include <cstring>
#include <unistd.h>

namespace tamo::core {
namespace {

bool targetAcceptable(const std::filesystem::path& target) {
    const FileKind kind = getFileKind(target);
    return kind == FileKind::RegularFile || kind == FileKind::Missing;
}

bool copyBlocks(int from, int to, std::uint64_t expected) {
    std::array<char, kTransferBlock> block;
    std::uint64_t total = 0;
    for (;;) {
        const long got = readSome(from, block.data(), block.size());
        if (got < 0) return false;
        if (got == 0) break;
        total += static_cast<std::uint64_t>(got);
        if (total > kMaxVerifiedCopyBytes) return false;
        if (!writeAll(to, std::string_view(block.data(), static_cast<std::size_t>(got)))) return false;
    }
    return total == expected;
}

// Reads both from the start, block against block, until both end together.
bool sameContent(int a, int b) {
    if (::lseek(a, 0, SEEK_SET) != 0 || ::lseek(b, 0, SEEK_SET) != 0) return false;
    std::array<char, kTransferBlock> left;
    std::array<char, kTransferBlock> right;
    for (;;) {
        const long gotLeft = readSome(a, left.data(), left.size());
        const long gotRight = readSome(b, right.data(), right.size());
        if (gotLeft < 0 || gotRight < 0 || gotLeft != gotRight) return false;
        if (gotLeft == 0) return true;
        if (std::memcmp(left.data(), right.data(), static_cast<std::size_t>(gotLeft)) != 0) return false;
    }
}

}  // namespace

bool copyVerifiedFile(const std::filesystem::path& source, const std::filesystem::path& target) {
    try {
        if (source.empty() || target.empty()) return false;
        if (getFileKind(source) != FileKind::RegularFile || !targetAcceptable(target)) return false;

        std::uint64_t size = 0;
        UniqueFd input = openRegularForRead(source, &size);
        if (!input.valid() || size > kMaxVerifiedCopyBytes) return false;

        CreatedTemporary created = createNewTemporary(target, kCopyTemporaryMarker);
        if (!created.fd.valid()) return false;
        TemporaryGuard guard(created.path);

        if (!copyBlocks(input.get(), created.fd.get(), size)) return false;
        if (::fsync(created.fd.get()) != 0) return false;
        if (!sameContent(input.get(), created.fd.get())) return false;
        if (!created.fd.close()) return false;
        if (getFileKind(created.path) != FileKind::RegularFile) return false;
        // The target may have been replaced by something else while we copied.
        if (!targetAcceptable(target)) return false;

        if (!renameReplacing(created.path, target)) return false;
        guard.disarm();
        return true;
    } catch (...) {
        return false;
    }
}

}  // namespace tamo::core
