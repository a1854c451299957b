#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace tamo::shell {

// The seven custom skin colours by key ("canvas", "surface", "raised",
// "border", "textPrimary", "textSecondary", "accent"), each "#RRGGBB".
// Only the colours that were set are present.
using SkinColours = std::map<std::string, std::string>;

// All main preferences as one plain record: what tamo.json holds, what the
// window's captureSettingsSnapshot fills in from its running state before a
// save, and what a load fills in over the values it already had.
struct SettingsSnapshot {
    std::string mediaFolder;
    int fontSize = 14;
    std::string commandLabels = "both";
    bool diagnosticsEnabled = false;
    std::string theme = "system";
    std::string accent = "blue";
    std::string skinPreset = "default";
    SkinColours skin;
    bool doubleClickRequiredForPlayStop = true;
    bool moveSingerToBottomWhenLive = false;
    bool proMode = false;
    bool backspaceDeletesQueueItem = false;
    double musicVolume = 0.85;
    int commonFilenameWords = 25000;
    bool remoteEnabled = true;
    int remotePort = 8090;

    friend bool operator==(const SettingsSnapshot&, const SettingsSnapshot&) = default;
};

// The words each text preference accepts; anything else is ignored on reading.
bool isThemeWord(std::string_view word);          // "system", "light", "dark"
bool isAccentWord(std::string_view word);         // "blue", "indigo", "teal"
bool isSkinPresetWord(std::string_view word);     // "default", "midnight", "stage", "custom"
bool isCommandLabelWord(std::string_view word);   // "text", "icon", "both"
bool isSkinColourKey(std::string_view key);
// "#" and six hexadecimal digits.
bool isSkinColour(std::string_view text);

// Clamps of the numeric preferences, shared by every store that holds them.
// Whole-number settings are rounded first. Nothing for a value that is not finite.
std::optional<int> clampFontSize(double value);
std::optional<double> clampMusicVolume(double value);
std::optional<int> clampCommonFilenameWords(double value);
std::optional<int> clampRemotePort(double value);

}  // namespace tamo::shell
