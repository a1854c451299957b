#pragma once

#include <filesystem>

namespace tamo::core {

// What stands at a durable path. Only RegularFile may be read, replaced or
// archived: a directory, link, device, FIFO or socket is never touched.
enum class FileKind : int {
    Missing = 0,
    RegularFile = 1,
    NotRegularFile = 2,
    Unreadable = 3,
};

// Looks at the path itself (a link is not followed).
FileKind getFileKind(const std::filesystem::path& path);

}  // namespace tamo::core
