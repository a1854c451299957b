#pragma once

#include "local_settings.h"
#include "settings_snapshot.h"

#include <filesystem>

namespace tamo::shell {

// The preferences at start. From the defaults, tamo.json wins whole when it
// can be used. When it can't: the music volume comes from the local setting
// "musicVolume" if there is one, else from the recovered event; the look from
// appearance-settings.json with the local settings over it; the rest from
// the local settings.
struct StartupSettings {
    SettingsSnapshot settings;
    bool fromSettingsFile = false;
};

StartupSettings resolveStartupSettings(const std::filesystem::path& settingsFile,
                                       const std::filesystem::path& appearanceFile, const LocalSettings& local,
                                       double recoveredMusicVolume);

}  // namespace tamo::shell
