#pragma once

#include <string_view>

namespace tamo::shell {

// The operator's one status line. The window implements it (adding its
// recovery suffix); tests keep the last text.
class StatusSink {
public:
    virtual ~StatusSink() = default;
    virtual void reportStatus(std::string_view text) = 0;
};

class NullStatusSink final : public StatusSink {
public:
    void reportStatus(std::string_view) override {}
};

}  // namespace tamo::shell
