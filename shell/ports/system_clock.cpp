#include "clock.h"

#include <chrono>

namespace tamo::shell {

std::int64_t SystemClock::steadyNanoseconds() const {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

std::int64_t SystemClock::systemTicks() const {
    using Ticks = std::chrono::duration<std::int64_t, std::ratio<1, 10000000>>;
    return std::chrono::duration_cast<Ticks>(std::chrono::system_clock::now().time_since_epoch()).count();
}

}  // namespace tamo::shell
