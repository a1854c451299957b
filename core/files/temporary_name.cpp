#include "temporary_name.h"

#include <atomic>
#include <cstdint>
#include <ctime>
#include <string>
#include <unistd.h>

namespace tamo::core {
namespace {

std::atomic<std::uint64_t> nameSequence{0};

std::uint64_t monotonicMilliseconds() {
    timespec now {};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000u + static_cast<std::uint64_t>(now.tv_nsec) / 1000000u;
}

}  // namespace

std::filesystem::path temporaryPathFor(const std::filesystem::path& target, std::string_view marker,
                                       unsigned attempt) {
    std::string name = target.filename().string();
    name.append(marker);
    name += std::to_string(::getpid());
    name += '.';
    name += std::to_string(::gettid());
    name += '.';
    name += std::to_string(monotonicMilliseconds());
    name += '.';
    name += std::to_string(nameSequence.fetch_add(1, std::memory_order_relaxed));
    name += '.';
    name += std::to_string(attempt);
    return target.parent_path() / name;
}

}  // namespace tamo::core
