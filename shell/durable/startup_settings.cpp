#include "startup_settings.h"

#include "appearance_settings.h"
#include "json_document.h"
#include "settings_file.h"

namespace tamo::shell {
namespace {

template <typename Accept>
void localWord(const LocalSettings& local, const char* key, Accept accept, std::string& out) {
    if (const auto text = localSettingText(local.readLocalSetting(key)); text && accept(*text)) out = *text;
}

void localFlag(const LocalSettings& local, const char* key, bool& out) {
    if (const auto flag = localSettingBool(local.readLocalSetting(key))) out = *flag;
}

template <typename Clamp, typename Out>
void localNumber(const LocalSettings& local, const char* key, Clamp clamp, Out& out) {
    if (const auto number = localSettingNumber(local.readLocalSetting(key))) {
        if (const auto clamped = clamp(*number)) out = *clamped;
    }
}

// The local "skin" value is the colours as a JSON object text.
void localSkin(const LocalSettings& local, SkinColours& skin) {
    const auto text = localSettingText(local.readLocalSetting("skin"));
    if (!text) return;
    const JsonDocument parsed = JsonDocument::parse(*text, nullptr, false);
    if (parsed.is_discarded() || !parsed.is_object()) return;
    for (const auto& [key, value] : parsed.items()) {
        if (isSkinColourKey(key) && value.is_string() && isSkinColour(value.get_ref<const std::string&>()))
            skin[key] = value.get<std::string>();
    }
}

}  // namespace

StartupSettings resolveStartupSettings(const std::filesystem::path& settingsFile,
                                       const std::filesystem::path& appearanceFile, const LocalSettings& local,
                                       double recoveredMusicVolume) {
    StartupSettings result;
    SettingsSnapshot& settings = result.settings;
    if (loadSettingsFile(settingsFile, settings)) {
        result.fromSettingsFile = true;
        return result;
    }
    settings.musicVolume = clampMusicVolume(recoveredMusicVolume).value_or(settings.musicVolume);
    localNumber(local, "musicVolume", clampMusicVolume, settings.musicVolume);

    AppearanceSettings appearance;
    if (loadAppearanceSettings(appearanceFile, appearance)) {
        settings.theme = appearance.theme;
        settings.accent = appearance.accent;
        settings.skinPreset = appearance.skinPreset;
        settings.skin = appearance.skin;
        settings.commandLabels = appearance.commandLabelMode;
        settings.fontSize = appearance.applicationFontSize.value_or(settings.fontSize);
        settings.doubleClickRequiredForPlayStop =
            appearance.doubleClickRequiredForPlayStop.value_or(settings.doubleClickRequiredForPlayStop);
        settings.moveSingerToBottomWhenLive =
            appearance.moveSingerToBottomWhenLive.value_or(settings.moveSingerToBottomWhenLive);
        settings.proMode = appearance.proMode.value_or(settings.proMode);
        settings.backspaceDeletesQueueItem =
            appearance.backspaceDeletesQueueItem.value_or(settings.backspaceDeletesQueueItem);
    }
    localWord(local, "appearanceThemeMode", isThemeWord, settings.theme);
    localWord(local, "appearanceAccent", isAccentWord, settings.accent);
    localWord(local, "skinPreset", isSkinPresetWord, settings.skinPreset);
    localSkin(local, settings.skin);
    localNumber(local, "applicationFontSize", clampFontSize, settings.fontSize);
    localWord(local, "commandLabelMode", isCommandLabelWord, settings.commandLabels);
    localFlag(local, "doubleClickRequiredForPlayStop", settings.doubleClickRequiredForPlayStop);
    localFlag(local, "moveSingerToBottomWhenLive", settings.moveSingerToBottomWhenLive);
    localFlag(local, "proMode", settings.proMode);
    localFlag(local, "backspaceDeletesQueueItem", settings.backspaceDeletesQueueItem);
    localFlag(local, "diagnosticsEnabled", settings.diagnosticsEnabled);
    localNumber(local, "commonSearchCacheWordLimit", clampCommonFilenameWords, settings.commonFilenameWords);
    localFlag(local, "remoteServerEnabled", settings.remoteEnabled);
    localNumber(local, "remotePort", clampRemotePort, settings.remotePort);
    if (const auto folder = localSettingText(local.readLocalSetting("mediaFolder"))) settings.mediaFolder = *folder;
    return result;
}

}  // namespace tamo::shell
