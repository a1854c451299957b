#pragma once

#include "song.h"

#include <string>
#include <string_view>

namespace tamo::core {

// The graphics file paired with a media file, or empty. Prefers ".cdg", then
// ".CDG", then any other capitalisation first in path order; stems compare
// case-sensitively even on file systems that don't.
std::string findKaraokeGraphics(std::string_view mediaPath);

// The song's own graphics path when it still names a regular file, else a
// fresh search beside the media file. Used at play and preflight time.
std::string resolveSongGraphics(const Song& song);

}  // namespace tamo::core
