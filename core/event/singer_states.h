#pragma once

#include "event_core.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

namespace tamo::core {

// Singer id to "Away" or "Skipped". "Ready" is the default and never stored.
// Owned by the shell beside the event; UI thread only.
using SingerStates = std::unordered_map<std::int32_t, std::string>;

// True for the three words the map understands: "Ready", "Away", "Skipped".
bool isSingerStateWord(std::string_view word);
// "Ready" removes the key. Any other word is refused.
bool setSingerState(SingerStates& states, std::int32_t singerId, std::string_view word);
std::string_view singerStateOf(const SingerStates& states, std::int32_t singerId);

// The first queued entry of the first singer, from the top of the rotation,
// who is neither "Away" nor "Skipped"; null when nobody eligible has a song.
const QueueEntry* nextEligibleEntry(const EventCore& core, const SingerStates& states);

// What the shell reports when nextEligibleEntry finds nothing.
inline constexpr std::string_view kNoEligibleSinger = "No eligible singer has a queued song.";

}  // namespace tamo::core
