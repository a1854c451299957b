#pragma once

#include "filler_model.h"
#include "local_settings.h"

namespace tamo::shell {

// The filler keys of the local settings ("fillerPlaylistName",
// "fillerPlaylists", "fillerPlaylist", "fillerMode", "fillerShuffle",
// "fillerCurrentIndex", "fillerVolume"), read in the model's order; a key of
// the wrong type counts as missing.
core::FillerSettings loadFillerSettings(const LocalSettings& settings);
// Writes every key; false when the store refused any of them.
bool saveFillerSettings(LocalSettings& settings, const core::FillerSettings& filler);

}  // namespace tamo::shell
