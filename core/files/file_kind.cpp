#include "file_kind.h"

#include <cerrno>
#include <sys/stat.h>

namespace tamo::core {

FileKind getFileKind(const std::filesystem::path& path) {
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0) {
        return (errno == ENOENT || errno == ENOTDIR) ? FileKind::Missing : FileKind::Unreadable;
    }
    return S_ISREG(st.st_mode) ? FileKind::RegularFile : FileKind::NotRegularFile;
}

}  // namespace tamo::core
