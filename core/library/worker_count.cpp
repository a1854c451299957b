#include "worker_count.h"

#include <algorithm>
#include <cstdlib>
#include <thread>

namespace tamo::core {

std::optional<std::uint32_t> parseWorkerCount(std::string_view text) {
    if (text.empty()) return std::nullopt;
    std::uint64_t value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return std::nullopt;
        value = value * 10 + static_cast<std::uint64_t>(c - '0');
        if (value > 0xFFFFFFFFULL) return std::nullopt;
    }
    if (value == 0) return std::nullopt;
    return static_cast<std::uint32_t>(value);
}

unsigned chooseWorkerCount(const char* environmentVariable, std::uint64_t usefulWorkers) {
    std::uint64_t count = 0;
    const char* text = environmentVariable != nullptr ? std::getenv(environmentVariable) : nullptr;
    if (text != nullptr) {
        if (const auto parsed = parseWorkerCount(text)) count = *parsed;
    }
    if (count == 0) count = std::max(1u, std::thread::hardware_concurrency());
    count = std::clamp<std::uint64_t>(count, 1, kMaxParallelWorkers);
    count = std::min(count, std::max<std::uint64_t>(usefulWorkers, 1));
    return static_cast<unsigned>(count);
}

}  // namespace tamo::core
