#include "move_aside.h"

#include "file_kind.h"
#include "temporary_name.h"
#include "unique_fd.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace tamo::core {

bool renameWithoutReplacing(const std::filesystem::path& from, const std::filesystem::path& to) {
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) != 0) {
        if (errno != EINVAL && errno != ENOSYS && errno != EOPNOTSUPP) return false;
        // link() refuses an existing name just as RENAME_NOREPLACE does.
        if (::link(from.c_str(), to.c_str()) != 0) return false;
        if (::unlink(from.c_str()) != 0) {
            const int saved = errno;
            ::unlink(to.c_str());
            errno = saved;
            return false;
        }
    }
    syncParentDirectory(to);
    if (from.parent_path() != to.parent_path()) syncParentDirectory(from);
    return true;
}

bool moveAsideForArchive(const std::filesystem::path& source, std::filesystem::path& movedPath) {
    movedPath.clear();
    try {
        if (source.empty() || getFileKind(source) != FileKind::RegularFile) return false;
        for (unsigned attempt = 0; attempt < kTemporaryAttempts; ++attempt) {
            std::filesystem::path candidate = temporaryPathFor(source, kArchivedMarker, attempt);
            if (renameWithoutReplacing(source, candidate)) {
                movedPath = std::move(candidate);
                return true;
            }
            if (errno != EEXIST) return false;
        }
        return false;
    } catch (...) {
        return false;
    }
}

}  // namespace tamo::core
