#pragma once

#include "settings_snapshot.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace tamo::shell {

inline constexpr std::uint64_t kMaxAppearanceFileBytes = 0x400;

// appearance-settings.json: a tiny flat fallback for the look of the window,
// used when tamo.json can't be. Behaviour flags and the font size are only
// present when the file has them.
struct AppearanceSettings {
    std::string theme = "system";
    std::string accent = "blue";
    std::string skinPreset = "default";
    SkinColours skin;
    std::optional<bool> doubleClickRequiredForPlayStop;
    std::optional<bool> moveSingerToBottomWhenLive;
    std::optional<bool> proMode;
    std::optional<bool> backspaceDeletesQueueItem;
    std::optional<int> applicationFontSize;
    std::string commandLabelMode = "both";

    friend bool operator==(const AppearanceSettings&, const AppearanceSettings&) = default;
};

// Whether the file was usable: a plain file of at most 1024 bytes, a JSON
// object with version 1. Words outside their lists and colours that are not
// "#RRGGBB" are ignored one by one.
bool loadAppearanceSettings(const std::filesystem::path& path, AppearanceSettings& settings);
// Replaces the file; fails when the text would pass 1024 bytes, and never
// overwrites a file that could not be used.
bool saveAppearanceSettings(const std::filesystem::path& path, const AppearanceSettings& settings);

// The same at appearanceSettingsPath().
bool loadAppearanceSettings(AppearanceSettings& settings);
bool saveAppearanceSettings(const AppearanceSettings& settings);

}  // namespace tamo::shell
