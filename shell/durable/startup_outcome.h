#pragma once

#include "recovery_format.h"

#include <string_view>

namespace tamo::shell {

// What the window does with the result of the start-up read.
struct StartupOutcome {
    bool recoveryBlocked = false;
    bool partialRecoveryPending = false;
    // Whether the restored event is shown (lists refreshed); for Complete the
    // music volume is applied as well.
    bool showRestoredEvent = false;
    bool applyVolume = false;
    // Empty when the operator is told nothing.
    std::string_view message;
};

// damagedPreserved matters only for Damaged: whether the damaged primary
// could be moved aside to a corrupt copy.
StartupOutcome startupOutcome(RecoveryReadStatus status, bool damagedPreserved);

}  // namespace tamo::shell
