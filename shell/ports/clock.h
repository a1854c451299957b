#pragma once

#include <cstdint>

namespace tamo::shell {

// The two clocks the shell reads. Tests give a fake whose hands they move;
// the program uses SystemClock.
class Clock {
public:
    virtual ~Clock() = default;
    // Nanoseconds of a steady clock, for elapsed times and gates.
    virtual std::int64_t steadyNanoseconds() const = 0;
    // System time in 100 ns ticks since the Unix epoch, for names that must
    // sort by wall time (corrupt copies, archive folders).
    virtual std::int64_t systemTicks() const = 0;
};

class SystemClock final : public Clock {
public:
    std::int64_t steadyNanoseconds() const override;
    std::int64_t systemTicks() const override;
};

}  // namespace tamo::shell
