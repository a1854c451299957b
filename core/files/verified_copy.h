#pragma once

#include <cstdint>
#include <filesystem>

namespace tamo::core {

// Largest source a verified copy accepts.
inline constexpr std::uint64_t kMaxVerifiedCopyBytes = 0x2000000;

// Copies a plain file of at most 32 MiB over target (which must be a plain
// file or absent) through a verified temporary. Afterwards target is either
// untouched or a byte-exact copy of source.
bool copyVerifiedFile(const std::filesystem::path& source, const std::filesystem::path& target);

}  // namespace tamo::core
