#pragma once

#include <string_view>

namespace tamo::shell {

// The operator's words for the recovery file, in one place so that the window,
// the tools and the tests quote the same text.
inline constexpr std::string_view kRecoverySaveFailedMessage =
    "Recovery has not been saved yet. Tamo will retry after the next change; keep the app open and check "
    "available disk space.";
inline constexpr std::string_view kRecoverySaveRetriedMessage = "Event recovery was saved successfully.";
inline constexpr std::string_view kLibraryChangeEditMessage =
    "Wait for the media folder change to finish before editing the event.";
inline constexpr std::string_view kRecoveryBlockedEditMessage =
    "Reconnect and choose the previous event's original media folder first. Recovery data is still protected.";

inline constexpr std::string_view kStartupRecoveredMessage = "Recovered the previous event.";
inline constexpr std::string_view kStartupPartialMessage =
    "The previous event is protected because some media is unavailable. Reconnect it and choose its folder; if "
    "files are permanently gone, Tamo can archive the complete snapshot and continue with the recoverable parts.";
inline constexpr std::string_view kStartupBackupOnlyMessage =
    "Tamo read the last-known-good recovery backup but could not repair the primary recovery file. Event edits "
    "are locked; check disk access and restart Tamo to retry safely.";
inline constexpr std::string_view kStartupNewerMessage =
    "This recovery file was written by a newer Tamo version. Event edits are locked so updating Tamo can recover "
    "it safely.";
inline constexpr std::string_view kStartupDamagedPreservedMessage =
    "The damaged recovery file was preserved separately. Tamo started a clean event.";
inline constexpr std::string_view kStartupDamagedLockedMessage =
    "The recovery file is damaged and could not be preserved separately, so event edits are locked to protect it.";

inline constexpr std::string_view kRecoveryTimingPoint = "Recovery.Action";

}  // namespace tamo::shell
