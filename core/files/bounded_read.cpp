#include "bounded_read.h"

#include "unique_fd.h"

#include <fcntl.h>

namespace tamo::core {

std::optional<std::string> readBoundedFile(const std::filesystem::path& path, std::uint64_t maxBytes) {
    try {
        std::uint64_t size = 0;
        UniqueFd fd = openRegularForRead(path, &size);
        if (!fd.valid()) return std::nullopt;
        if (size < 1 || size > maxBytes) return std::nullopt;
        ::posix_fadvise(fd.get(), 0, 0, POSIX_FADV_SEQUENTIAL);

        std::string content(static_cast<std::size_t>(size), '\0');
        if (!readExactly(fd.get(), content.data(), content.size())) return std::nullopt;
        char extra = 0;
        if (readSome(fd.get(), &extra, 1) != 0) return std::nullopt;
        return content;
    } catch (...) {
        return std::nullopt;
    }
}

}  // namespace tamo::core
