#include "filler_settings_store.h"

namespace tamo::shell {

core::FillerSettings loadFillerSettings(const LocalSettings& settings) {
    core::FillerStoredValues stored;
    stored.fillerPlaylistName = localSettingText(settings.readLocalSetting("fillerPlaylistName"));
    stored.fillerPlaylists = localSettingText(settings.readLocalSetting("fillerPlaylists"));
    stored.fillerPlaylist = localSettingText(settings.readLocalSetting("fillerPlaylist"));
    stored.fillerMode = localSettingText(settings.readLocalSetting("fillerMode"));
    stored.fillerShuffle = localSettingBool(settings.readLocalSetting("fillerShuffle"));
    stored.fillerCurrentIndex = localSettingNumber(settings.readLocalSetting("fillerCurrentIndex"));
    stored.fillerVolume = localSettingNumber(settings.readLocalSetting("fillerVolume"));
    return core::readFillerSettings(stored);
}

bool saveFillerSettings(LocalSettings& settings, const core::FillerSettings& filler) {
    const core::FillerStoredValues stored = core::storedFillerValues(filler);
    bool ok = true;
    ok = settings.writeLocalSetting("fillerPlaylistName", *stored.fillerPlaylistName) && ok;
    ok = settings.writeLocalSetting("fillerPlaylists", *stored.fillerPlaylists) && ok;
    ok = settings.writeLocalSetting("fillerPlaylist", *stored.fillerPlaylist) && ok;
    ok = settings.writeLocalSetting("fillerMode", *stored.fillerMode) && ok;
    ok = settings.writeLocalSetting("fillerShuffle", *stored.fillerShuffle) && ok;
    ok = settings.writeLocalSetting("fillerCurrentIndex", *stored.fillerCurrentIndex) && ok;
    ok = settings.writeLocalSetting("fillerVolume", *stored.fillerVolume) && ok;
    return ok;
}

}  // namespace tamo::shell
