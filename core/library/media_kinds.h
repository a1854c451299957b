#pragma once

#include <filesystem>
#include <string_view>

namespace tamo::core {

// ".m4v", ".mkv", ".mov", ".mp3", ".mp4", ".webm", compared lower-cased.
bool isMediaExtension(std::string_view extension);
// ".cdg" in any capitalisation.
bool isGraphicsExtension(std::string_view extension);
bool isMediaFile(const std::filesystem::path& path);
bool isGraphicsFile(const std::filesystem::path& path);

}  // namespace tamo::core
