#pragma once

#include "song.h"

#include <cstdint>
#include <string_view>

namespace tamo::core {

// A song made from a media file: absolute path, artist and title from the
// file name, lower-cased extension as format, and the paired graphics when
// pairKnown says a pair is there to find.
Song buildSong(std::int32_t id, std::string_view mediaPath, bool pairKnown);

// The same fields without any disk access: the path made lexically normal and
// the graphics path assumed beside it with ".cdg". Used when pairs are trusted.
Song buildFastSong(std::string mediaPath);

}  // namespace tamo::core
