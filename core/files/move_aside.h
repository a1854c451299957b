#pragma once

#include <filesystem>

namespace tamo::core {

// Renames a plain file to a fresh ".archived." name beside it, never
// replacing anything that already has that name. movedPath gets the new name.
bool moveAsideForArchive(const std::filesystem::path& source, std::filesystem::path& movedPath);

// Renames from to to only if to does not exist, then makes the folder
// durable. Uses renameat2 where the file system supports it and link plus
// unlink where it doesn't. Sets errno to EEXIST when to is taken.
bool renameWithoutReplacing(const std::filesystem::path& from, const std::filesystem::path& to);

}  // namespace tamo::core
