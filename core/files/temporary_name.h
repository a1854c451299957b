#pragma once

#include <filesystem>
#include <string_view>

namespace tamo::core {

inline constexpr std::string_view kWriteTemporaryMarker = ".write-tmp.";
inline constexpr std::string_view kCopyTemporaryMarker = ".copy-tmp.";
inline constexpr std::string_view kArchivedMarker = ".archived.";

// "<folder>/<name><marker><pid>.<tid>.<ms>.<sequence>.<attempt>" beside the
// target, so the final rename never crosses a file system. The sequence is a
// process-wide counter, so two threads never build the same name; the name
// is rebuilt whole for each attempt.
std::filesystem::path temporaryPathFor(const std::filesystem::path& target, std::string_view marker,
                                       unsigned attempt);

// Attempts a create-new or never-replace loop makes before giving up.
inline constexpr unsigned kTemporaryAttempts = 64;

}  // namespace tamo::core
