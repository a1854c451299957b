#pragma once

#include <cstdint>
#include <string_view>

namespace tamo::shell {

// The version this program writes; files of versions 1 up to it are read.
inline constexpr int kRecoveryFormatVersion = 4;

inline constexpr std::uint64_t kMaxRecoveryFileBytes = 0x2000000;
inline constexpr std::size_t kMaxRecoveryPathBytes = 131072;
inline constexpr std::size_t kMaxRecoveryTextBytes = 32768;
inline constexpr std::size_t kMaxRecoveryFormatBytes = 1024;
inline constexpr std::size_t kMaxRecoveryStampBytes = 32;
inline constexpr std::size_t kMaxRecoveryStatusBytes = 16;
inline constexpr std::int64_t kMaxRecoveryStoredId = 1000000000;
inline constexpr std::int64_t kMaxPlaybackPositionMs = 604800000;  // seven days
inline constexpr double kDefaultMusicVolume = 0.85;

// What a read of the recovery file (or of the primary and its backup
// together) came to.
enum class RecoveryReadStatus : int {
    Missing = 0,
    Complete = 1,
    Partial = 2,
    RestoredFromBackupOnly = 3,
    Newer = 4,
    Damaged = 5,
};

// "missing", "complete", "partial", "backup-only", "newer", "damaged".
std::string_view recoveryReadStatusName(RecoveryReadStatus status);

}  // namespace tamo::shell
