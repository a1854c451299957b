#include "recovery_format.h"

namespace tamo::shell {

std::string_view recoveryReadStatusName(RecoveryReadStatus status) {
    switch (status) {
        case RecoveryReadStatus::Missing: return "missing";
        case RecoveryReadStatus::Complete: return "complete";
        case RecoveryReadStatus::Partial: return "partial";
        case RecoveryReadStatus::RestoredFromBackupOnly: return "backup-only";
        case RecoveryReadStatus::Newer: return "newer";
        case RecoveryReadStatus::Damaged: return "damaged";
    }
    return "unknown";
}

}  // namespace tamo::shell
