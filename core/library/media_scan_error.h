#pragma once

#include <filesystem>
#include <string>
#include <system_error>

namespace tamo::core {

// A scan failure: one of the fixed texts, the path concerned and an error
// code (value too large for the safe limits, invalid argument for an escape
// from the root, state not recoverable for a folder that never stood still,
// the system's own code where one is at hand, input/output otherwise).
// what() is the fixed text alone, so it can be shown to the operator as is.
class MediaScanError : public std::filesystem::filesystem_error {
public:
    MediaScanError(const std::string& text, const std::filesystem::path& path, std::error_code code);
    const char* what() const noexcept override;

private:
    std::string text_;
};

[[noreturn]] void throwScanError(const char* text, const std::filesystem::path& path, std::errc code);
[[noreturn]] void throwScanError(const char* text, const std::filesystem::path& path, int errnoValue);

// The fixed failure texts that the operator sees; both scanners and the
// index load share them so that one folder fails with one wording.
namespace scan_text {
inline constexpr const char* kResolve = "Could not resolve media folder";
inline constexpr const char* kNotDirectory = "Media folder is not a directory";
inline constexpr const char* kOpen = "Could not open media folder";
inline constexpr const char* kInspect = "Could not inspect media entry";
inline constexpr const char* kUnreadable = "Media folder changed or became unreadable during scan";
inline constexpr const char* kFileUnreadable = "Media file changed or became unreadable during scan";
}  // namespace scan_text

// The code of every safe-limit failure; such a failure is never retried.
inline constexpr std::errc kScanLimitCode = std::errc::value_too_large;

}  // namespace tamo::core
