#pragma once

#include "recovery_event_view.h"
#include "singer_states.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace tamo::shell {

// Whether the JSON of this event can fit the file limit, by a cheap estimate
// that stops counting as soon as it passes 33554432 bytes, so an oversized
// event is refused before any text is built. The text itself is measured
// again once it is built.
bool RecoveryJsonSizeEstimate(const RecoveryEventView& event, std::string_view mediaFolder,
                              const core::SingerStates& singerStates);
// The estimate itself, or a value above the limit once it passes it.
std::uint64_t estimateRecoveryJsonSize(const RecoveryEventView& event, std::string_view mediaFolder,
                                       const core::SingerStates& singerStates);

// The recovery file's text, or nothing when the event would not read back:
// every record is checked against the reader's rules first, then the size
// estimate, then the real length (1 to 33554432 bytes). Touches the disk
// only to look up the size and time of each media file, once per path.
std::optional<std::string> serialiseEventRecovery(const RecoveryEventView& event, std::string_view mediaFolder,
                                                  std::int64_t playbackPositionMs,
                                                  const core::SingerStates& singerStates);

// Where a save goes: the primary and its one backup generation.
struct RecoveryFiles {
    std::filesystem::path primary;
    std::filesystem::path backup;

    // recoveryFilePath() and recoveryBackupPath(); both empty without a data root.
    static RecoveryFiles standard();
};

// Time spent in the two halves of a save, for diagnostics and benchmarks.
struct RecoveryWriteTimings {
    std::int64_t serialiseNs = 0;
    std::int64_t commitNs = 0;  // verified temporary, backup copy and rename
    std::uint64_t bytes = 0;
};

// Serialises, then commits: the verified temporary beside the primary, the
// old primary copied (verified) over the backup, the temporary renamed over
// the primary. Neither file is ever left half written, and a folder, link or
// unreadable entry at either path stops the save before anything is created.
bool WriteEventRecovery(const RecoveryEventView& event, std::string_view mediaFolder, std::int64_t playbackPositionMs,
                        const core::SingerStates& singerStates, const RecoveryFiles& files,
                        RecoveryWriteTimings* timings = nullptr);
// The same to the standard paths.
bool WriteEventRecovery(const RecoveryEventView& event, std::string_view mediaFolder, std::int64_t playbackPositionMs,
                        const core::SingerStates& singerStates);

// Commits already serialised text with the backup step.
bool commitRecoveryText(std::string_view text, const RecoveryFiles& files);

}  // namespace tamo::shell
