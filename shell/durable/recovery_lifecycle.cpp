#include "recovery_lifecycle.h"

#include "file_kind.h"
#include "fixed_paths.h"
#include "move_aside.h"
#include "temporary_name.h"
#include "recovery_messages.h"
#include "unique_fd.h"
#include "verified_copy.h"

#include <sys/stat.h>

#include <string>
#include <system_error>
#include <utility>

namespace tamo::shell {
namespace {

namespace fs = std::filesystem;
using core::FileKind;

constexpr std::string_view kPrimaryName = "event-recovery.json";
constexpr std::string_view kBackupName = "event-recovery.json.bak";

bool isPlainDirectory(const fs::path& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

std::int32_t performanceId(const core::EventCore& event) {
    return event.current() ? event.current()->id : 0;
}

}  // namespace

RecoveryLocations RecoveryLocations::standard() {
    return {core::recoveryFilePath(), core::recoveryBackupPath(), core::recoveryArchivesPath()};
}

RecoveryFileSteps RecoveryFileSteps::standard() {
    RecoveryFileSteps steps;
    steps.copyVerifiedFile = [](const fs::path& source, const fs::path& target) {
        return core::copyVerifiedFile(source, target);
    };
    steps.moveAsideForArchive = [](const fs::path& source, fs::path& moved) {
        return core::moveAsideForArchive(source, moved);
    };
    steps.renameWithoutReplacing = [](const fs::path& from, const fs::path& to) {
        return core::renameWithoutReplacing(from, to);
    };
    return steps;
}

RecoveryLifecycle::RecoveryLifecycle(RecoveryLocations locations, const Clock& clock, TimingSink& timing,
                                     StatusSink& status, RecoveryFileSteps steps)
    : locations_(std::move(locations)), clock_(clock), timing_(timing), status_(status), steps_(std::move(steps)) {}

std::uint64_t RecoveryLifecycle::elapsedMs(std::int64_t startedNs) const {
    const std::int64_t elapsed = clock_.steadyNanoseconds() - startedNs;
    return elapsed > 0 ? static_cast<std::uint64_t>(elapsed / 1000000) : 0;
}

bool RecoveryLifecycle::saveRecovery(const core::EventCore& event, std::string_view mediaFolder,
                                     std::int64_t& playbackPositionMs, const core::SingerStates& singerStates) {
    if (recoveryBlocked) {
        timing_.recordTimingPoint(kRecoveryTimingPoint, 0, "save blocked");
        return false;
    }
    const std::int32_t onStage = performanceId(event);
    if (onStage != savedPerformanceId_) {
        playbackPositionMs = 0;
        savedPerformanceId_ = onStage;
    }
    const std::int64_t started = clock_.steadyNanoseconds();
    const bool saved = WriteEventRecovery(RecoveryEventView::of(event), mediaFolder, playbackPositionMs, singerStates,
                                          locations_.files());
    if (saved) {
        timing_.recordTimingPoint(kRecoveryTimingPoint, elapsedMs(started), "save ok");
        recoveryDirty = false;
        return true;
    }
    timing_.recordTimingPoint(kRecoveryTimingPoint, elapsedMs(started), "save failed");
    recoveryDirty = true;
    status_.reportStatus(kRecoverySaveFailedMessage);
    return false;
}

bool RecoveryLifecycle::retrySave(const core::EventCore& event, std::string_view mediaFolder,
                                  std::int64_t& playbackPositionMs, const core::SingerStates& singerStates) {
    if (!recoveryDirty || recoveryBlocked) return false;
    if (!saveRecovery(event, mediaFolder, playbackPositionMs, singerStates)) return false;
    status_.reportStatus(kRecoverySaveRetriedMessage);
    return true;
}

RecoveryReadStatus RecoveryLifecycle::loadRecoveryWithBackup(core::EventCore& event, std::string& mediaFolder,
                                                             std::int64_t& playbackPositionMs,
                                                             core::SingerStates& singerStates,
                                                             const RecoveryReadOptions& options) {
    const RecoveryReadStatus primary =
        readEventRecovery(locations_.primary, event, mediaFolder, playbackPositionMs, singerStates, options);
    if (primary == RecoveryReadStatus::Complete || primary == RecoveryReadStatus::Partial ||
        primary == RecoveryReadStatus::Newer)
        return primary;

    core::EventCore backupEvent;
    std::string backupFolder;
    std::int64_t backupPosition = 0;
    core::SingerStates backupStates;
    const RecoveryReadStatus backup =
        readEventRecovery(locations_.backup, backupEvent, backupFolder, backupPosition, backupStates, options);
    if (backup == RecoveryReadStatus::Complete || backup == RecoveryReadStatus::Partial) {
        // The damaged primary is kept as a corrupt copy before the backup
        // takes its place; if it can't be kept, nothing is restored.
        if (primary == RecoveryReadStatus::Damaged && !preserveDamagedRecovery()) return RecoveryReadStatus::Damaged;
        std::error_code folderError;
        fs::create_directories(locations_.primary.parent_path(), folderError);
        event = std::move(backupEvent);
        mediaFolder = std::move(backupFolder);
        playbackPositionMs = backupPosition;
        singerStates = std::move(backupStates);
        if (!folderError && steps_.copyVerifiedFile(locations_.backup, locations_.primary)) return backup;
        return RecoveryReadStatus::RestoredFromBackupOnly;
    }
    if (backup == RecoveryReadStatus::Newer) return RecoveryReadStatus::Newer;
    // A missing primary with a damaged backup starts clean and says nothing.
    return primary;
}

bool RecoveryLifecycle::preserveDamagedRecovery() {
    if (locations_.primary.empty() || core::getFileKind(locations_.primary) != FileKind::RegularFile) return false;
    const fs::path corrupt = locations_.primary.parent_path() /
                             ("event-recovery.corrupt-" + std::to_string(clock_.systemTicks()) + ".json");
    return steps_.renameWithoutReplacing(locations_.primary, corrupt);
}

bool RecoveryLifecycle::archiveRecoveryFiles(fs::path& archiveFolder) {
    if (locations_.primary.empty() || locations_.backup.empty() || locations_.archiveRoot.empty()) return false;
    const FileKind primaryKind = core::getFileKind(locations_.primary);
    const FileKind backupKind = core::getFileKind(locations_.backup);
    const auto usable = [](FileKind kind) { return kind == FileKind::Missing || kind == FileKind::RegularFile; };
    if (!usable(primaryKind) || !usable(backupKind)) return false;
    if (primaryKind == FileKind::Missing && backupKind == FileKind::Missing) return false;

    const std::string ticks = std::to_string(clock_.systemTicks());
    fs::path folder;
    for (unsigned attempt = 0; attempt < core::kTemporaryAttempts && folder.empty(); ++attempt) {
        const fs::path candidate = locations_.archiveRoot / ("event-" + ticks + "-" + std::to_string(attempt));
        std::error_code error;
        fs::create_directories(locations_.archiveRoot, error);
        if (error) return false;
        if (fs::create_directory(candidate, error)) folder = candidate;
        else if (error) return false;
    }
    if (folder.empty() || !isPlainDirectory(folder)) return false;

    // The verified copies are the proof that the archive is whole.
    const bool hasPrimary = primaryKind == FileKind::RegularFile;
    const bool hasBackup = backupKind == FileKind::RegularFile;
    if (hasPrimary && !steps_.copyVerifiedFile(locations_.primary, folder / kPrimaryName)) return false;
    if (hasBackup && !steps_.copyVerifiedFile(locations_.backup, folder / kBackupName)) return false;
    if ((hasPrimary && core::getFileKind(locations_.primary) != FileKind::RegularFile) ||
        (hasBackup && core::getFileKind(locations_.backup) != FileKind::RegularFile))
        return false;

    fs::path movedBackup;
    fs::path movedPrimary;
    if (hasBackup && !steps_.moveAsideForArchive(locations_.backup, movedBackup)) return false;
    if (hasPrimary && !steps_.moveAsideForArchive(locations_.primary, movedPrimary)) {
        if (hasBackup) steps_.renameWithoutReplacing(movedBackup, locations_.backup);
        return false;
    }
    archiveFolder = folder;
    if (hasBackup) core::removeQuietly(movedBackup);
    if (hasPrimary) core::removeQuietly(movedPrimary);
    return true;
}

bool RecoveryLifecycle::guardEventEdit() {
    if (libraryChangeActive) {
        status_.reportStatus(kLibraryChangeEditMessage);
        return false;
    }
    if (recoveryBlocked) {
        status_.reportStatus(kRecoveryBlockedEditMessage);
        return false;
    }
    return true;
}

StartupOutcome RecoveryLifecycle::startupLoad(core::EventCore& event, std::string& mediaFolder,
                                              std::int64_t& playbackPositionMs, core::SingerStates& singerStates,
                                              RecoveryReadStatus* status) {
    const std::int64_t started = clock_.steadyNanoseconds();
    const RecoveryReadStatus read = loadRecoveryWithBackup(event, mediaFolder, playbackPositionMs, singerStates);
    timing_.recordTimingPoint(kRecoveryTimingPoint, elapsedMs(started),
                              "startup load " + std::to_string(static_cast<int>(read)));
    const bool preserved = read == RecoveryReadStatus::Damaged && preserveDamagedRecovery();
    const StartupOutcome outcome = startupOutcome(read, preserved);
    recoveryBlocked = outcome.recoveryBlocked;
    partialRecoveryPending = outcome.partialRecoveryPending;
    savedPerformanceId_ = performanceId(event);
    if (!outcome.message.empty()) status_.reportStatus(outcome.message);
    if (status != nullptr) *status = read;
    return outcome;
}

}  // namespace tamo::shell
