#include "startup_outcome.h"

#include "recovery_messages.h"

namespace tamo::shell {

StartupOutcome startupOutcome(RecoveryReadStatus status, bool damagedPreserved) {
    StartupOutcome outcome;
    switch (status) {
        case RecoveryReadStatus::Missing: break;
        case RecoveryReadStatus::Complete:
            outcome.showRestoredEvent = true;
            outcome.applyVolume = true;
            outcome.message = kStartupRecoveredMessage;
            break;
        case RecoveryReadStatus::Partial:
            outcome.recoveryBlocked = true;
            outcome.partialRecoveryPending = true;
            outcome.showRestoredEvent = true;
            outcome.message = kStartupPartialMessage;
            break;
        case RecoveryReadStatus::RestoredFromBackupOnly:
            outcome.recoveryBlocked = true;
            outcome.showRestoredEvent = true;
            outcome.message = kStartupBackupOnlyMessage;
            break;
        case RecoveryReadStatus::Newer:
            outcome.recoveryBlocked = true;
            outcome.message = kStartupNewerMessage;
            break;
        case RecoveryReadStatus::Damaged:
            // Only a file that is safely set aside may be replaced by a clean event.
            outcome.recoveryBlocked = !damagedPreserved;
            outcome.message = damagedPreserved ? kStartupDamagedPreservedMessage : kStartupDamagedLockedMessage;
            break;
    }
    return outcome;
}

}  // namespace tamo::shell
