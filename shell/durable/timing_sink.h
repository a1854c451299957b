#pragma once

#include <cstdint>
#include <string_view>

namespace tamo::shell {

// Where timing points go ("Recovery.Action" with "save ok" and its
// milliseconds, ...). Diagnostics implements it and drops the points while
// it is switched off; an implementation must not throw.
class TimingSink {
public:
    virtual ~TimingSink() = default;
    virtual void recordTimingPoint(std::string_view name, std::uint64_t elapsedMs, std::string_view detail) = 0;
};

// Drops every point.
class NullTimingSink final : public TimingSink {
public:
    void recordTimingPoint(std::string_view, std::uint64_t, std::string_view) override {}
};

}  // namespace tamo::shell
