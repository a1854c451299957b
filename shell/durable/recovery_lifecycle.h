#pragma once

#include "clock.h"
#include "event_core.h"
#include "recovery_format.h"
#include "recovery_reader.h"
#include "recovery_writer.h"
#include "singer_states.h"
#include "startup_outcome.h"
#include "status_sink.h"
#include "timing_sink.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

namespace tamo::shell {

// Where the event's durable state lives: the primary, its backup, and the
// folder that receives corrupt copies and archive folders.
struct RecoveryLocations {
    std::filesystem::path primary;
    std::filesystem::path backup;
    std::filesystem::path archiveRoot;

    // The fixed paths under the data root; all empty without one.
    static RecoveryLocations standard();
    RecoveryFiles files() const { return {primary, backup}; }
};

// The file steps the lifecycle takes, so a test can make one of them fail at
// the worst moment. Each defaults to the core primitive of the same name.
struct RecoveryFileSteps {
    std::function<bool(const std::filesystem::path&, const std::filesystem::path&)> copyVerifiedFile;
    std::function<bool(const std::filesystem::path&, std::filesystem::path&)> moveAsideForArchive;
    std::function<bool(const std::filesystem::path&, const std::filesystem::path&)> renameWithoutReplacing;

    static RecoveryFileSteps standard();
};

// When the event is saved, what happens when a save or a read fails, and when
// edits are locked. The rule throughout: no recovery data is destroyed by a
// failure; a file that can't be used is moved aside, archived or locked.
// Owned by the operator window; UI thread only.
class RecoveryLifecycle {
public:
    RecoveryLifecycle(RecoveryLocations locations, const Clock& clock, TimingSink& timing, StatusSink& status,
                      RecoveryFileSteps steps = RecoveryFileSteps::standard());

    // Event edits are locked; nothing may overwrite the recovery files.
    bool recoveryBlocked = false;
    // The lock comes from a partial read, so choosing a folder can release it.
    bool partialRecoveryPending = false;
    // Changed since the last good save; set by each change and by a failed save.
    bool recoveryDirty = false;
    // Edits are refused while a library change runs.
    bool libraryChangeActive = false;

    // Saves the event. When the performance on stage is not the one of the
    // last save, playbackPositionMs (the window's remembered position) is
    // reset to 0 first. Blocked: logs "save blocked" and writes nothing.
    bool saveRecovery(const core::EventCore& event, std::string_view mediaFolder, std::int64_t& playbackPositionMs,
                      const core::SingerStates& singerStates);
    // The 5 s retry: saves only while dirty and not blocked, and says so when
    // the retry succeeded. Returns whether a save ran and succeeded.
    bool retrySave(const core::EventCore& event, std::string_view mediaFolder, std::int64_t& playbackPositionMs,
                   const core::SingerStates& singerStates);

    // Reads the primary, falling back to the backup: a damaged primary with
    // a good backup is set aside and repaired from the backup. Outputs change
    // only on Complete, Partial or RestoredFromBackupOnly.
    RecoveryReadStatus loadRecoveryWithBackup(core::EventCore& event, std::string& mediaFolder,
                                              std::int64_t& playbackPositionMs, core::SingerStates& singerStates,
                                              const RecoveryReadOptions& options = {});
    // Renames the primary to "event-recovery.corrupt-<ticks>.json" beside it,
    // never replacing anything. The backup is not touched.
    bool preserveDamagedRecovery();
    // Verified copies of primary and backup into a fresh archive folder,
    // then both moved aside and removed. Before that last step nothing is
    // lost: a failure leaves both files where they were.
    bool archiveRecoveryFiles(std::filesystem::path& archiveFolder);
    // Whether an edit may go on; when not, the reason is on the status line.
    bool guardEventEdit();

    // The window's start-up read: loads with the backup, sets a damaged
    // primary aside, logs "startup load <code>", sets the lock flags and
    // reports the outcome's message. Returns the outcome for the window to
    // refresh its lists and volume.
    StartupOutcome startupLoad(core::EventCore& event, std::string& mediaFolder, std::int64_t& playbackPositionMs,
                               core::SingerStates& singerStates, RecoveryReadStatus* status = nullptr);

    const RecoveryLocations& locations() const { return locations_; }

private:
    std::uint64_t elapsedMs(std::int64_t startedNs) const;

    RecoveryLocations locations_;
    const Clock& clock_;
    TimingSink& timing_;
    StatusSink& status_;
    RecoveryFileSteps steps_;
    // Queue id of the performance on stage at the last save, 0 for none.
    std::int32_t savedPerformanceId_ = 0;
};

}  // namespace tamo::shell
