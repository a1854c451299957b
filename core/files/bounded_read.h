#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace tamo::core {

// The whole content of a plain file of 1 to maxBytes bytes, or nothing.
// A link, folder or device is refused through the opened descriptor, an empty
// file is a failure rather than empty content, and a file that grew while it
// was read is refused.
std::optional<std::string> readBoundedFile(const std::filesystem::path& path, std::uint64_t maxBytes);

}  // namespace tamo::core
