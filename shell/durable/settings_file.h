#pragma once

#include "settings_snapshot.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>

namespace tamo::shell {

inline constexpr std::uint64_t kMaxSettingsFileBytes = 0x40000;

// tamo.json, the hand-editable copy of the main preferences. A file that is
// missing, empty, oversized, unparseable or not of version 1 is ignored as a
// whole and says nothing. Otherwise each known key of the right type is read
// with its clamp over the value settings already had; other keys are left.
bool loadSettingsFile(const std::filesystem::path& path, SettingsSnapshot& settings);
// Sets the known keys on the existing document, so that unknown keys and
// durableStrings survive, and replaces the file (1 to 262144 bytes). A file
// that exists but could not be used is never overwritten.
bool saveSettingsFile(const std::filesystem::path& path, const SettingsSnapshot& settings);

// The small key-value store under "durableStrings": string values only.
std::map<std::string, std::string> readDurableStrings(const std::filesystem::path& path);
// Replaces the whole store; empty keys are skipped.
bool writeDurableStrings(const std::filesystem::path& path, const std::map<std::string, std::string>& values);

// The same at settingsFilePath().
bool loadSettingsFile(SettingsSnapshot& settings);
bool saveSettingsFile(const SettingsSnapshot& settings);
std::map<std::string, std::string> readDurableStrings();
bool writeDurableStrings(const std::map<std::string, std::string>& values);

}  // namespace tamo::shell
