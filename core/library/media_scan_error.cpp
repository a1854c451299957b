#include "media_scan_error.h"

#include <cerrno>

namespace tamo::core {

MediaScanError::MediaScanError(const std::string& text, const std::filesystem::path& path, std::error_code code)
    : std::filesystem::filesystem_error(text, path, code), text_(text) {}

const char* MediaScanError::what() const noexcept { return text_.c_str(); }

void throwScanError(const char* text, const std::filesystem::path& path, std::errc code) {
    throw MediaScanError(text, path, std::make_error_code(code));
}

void throwScanError(const char* text, const std::filesystem::path& path, int errnoValue) {
    if (errnoValue == 0) errnoValue = EIO;
    throw MediaScanError(text, path, std::error_code(errnoValue, std::generic_category()));
}

}  // namespace tamo::core
