#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace tamo::core {

inline constexpr unsigned kMaxParallelWorkers = 8;

// A worker count as written in an environment variable: wholly decimal
// digits, not zero, at most 4294967295. Anything else is no value.
std::optional<std::uint32_t> parseWorkerCount(std::string_view text);

// Workers for one parallel stage: the named environment variable when it
// holds a valid count, else the hardware's concurrency (at least 1); clamped
// to 1..8 and then to usefulWorkers (at least 1), which the caller derives
// from the amount of work.
unsigned chooseWorkerCount(const char* environmentVariable, std::uint64_t usefulWorkers);

}  // namespace tamo::core
