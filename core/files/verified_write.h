#pragma once

#include <filesystem>
#include <string_view>

namespace tamo::core {

// Creates a new temporary beside target, writes bytes, flushes them to disk
// and reads them back for comparison. On success the temporary holds exactly
// bytes, is closed, and its path is in temporaryPath: the caller renames it
// into place or removes it. On failure nothing is left behind.
bool writeVerifiedTemporary(const std::filesystem::path& target, std::string_view bytes,
                            std::filesystem::path& temporaryPath);

}  // namespace tamo::core
