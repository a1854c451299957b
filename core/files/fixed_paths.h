#pragma once

#include <filesystem>

namespace tamo::core {

// Where the durable files live. Everything hangs on the data root,
// "${XDG_DATA_HOME:-$HOME/.local/share}/Quillon/Tamo"; with neither variable
// set every path below is empty and each writer that needs one fails quietly.
std::filesystem::path dataRootPath();
std::filesystem::path recoveryFilePath();        // <root>/event-recovery.json
std::filesystem::path recoveryBackupPath();      // <root>/event-recovery.json.bak
std::filesystem::path appearanceSettingsPath();  // <root>/appearance-settings.json
std::filesystem::path MediaIndexCachePath();     // <root>/media-index-cache.tsv
std::filesystem::path recoveryArchivesPath();    // <root>/recovery-archives

// tamo.json: beside the source tree the running program was built in, when
// it runs from inside one, so a developer build shares the tree's settings;
// otherwise in the data root; empty when there is no data root either.
std::filesystem::path settingsFilePath();
// The same search starting from a given executable path instead of the
// running one.
std::filesystem::path settingsFilePathFor(const std::filesystem::path& executable);

}  // namespace tamo::core
