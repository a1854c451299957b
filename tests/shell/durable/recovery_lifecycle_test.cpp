#include "durable_fixture.h"
#include "fixed_paths.h"
#include "recovery_lifecycle.h"
#include "recovery_messages.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace tamo::test {
namespace {

namespace fs = std::filesystem;
using shell::RecoveryReadStatus;

class RecoveryLifecycleTest : public DurableTest {
protected:
    void SetUp() override {
        DurableTest::SetUp();
        addMedia("Artist - Song.mp3");
        loadLibrary(core);
        singer = core.addSinger("Ann");
        core.enqueueForSinger(core.songs()[0].id, singer);
    }

    shell::RecoveryLifecycle makeLifecycle(shell::RecoveryFileSteps steps = shell::RecoveryFileSteps::standard()) {
        return shell::RecoveryLifecycle(shell::RecoveryLocations::standard(), clock, timing, status, steps);
    }

    // A good file at path holding an event with `singers` singers.
    void writeGood(const fs::path& path, int singers) {
        core::EventCore event;
        loadLibrary(event);
        for (int i = 0; i < singers; ++i) event.addSinger("Singer " + std::to_string(i));
        std::int64_t position = 0;
        shell::RecoveryLifecycle writer(
            shell::RecoveryLocations{path, path.string() + ".side", dataRoot / "unused"}, clock, timing, status);
        ASSERT_TRUE(writer.saveRecovery(event, media.string(), position, {}));
        fs::remove(path.string() + ".side");
    }

    std::vector<fs::path> filesNamed(const std::string& prefix) const {
        std::vector<fs::path> found;
        for (const auto& entry : fs::directory_iterator(dataRoot)) {
            if (entry.path().filename().string().rfind(prefix, 0) == 0) found.push_back(entry.path());
        }
        return found;
    }

    RecoveryReadStatus load(shell::RecoveryLifecycle& lifecycle) {
        return lifecycle.loadRecoveryWithBackup(restored, folder, position, states);
    }

    FakeClock clock;
    RecordingTimingSink timing;
    RecordingStatusSink status;
    core::EventCore core;
    std::int32_t singer = 0;

    core::EventCore restored;
    std::string folder;
    std::int64_t position = 0;
    core::SingerStates states;
};

TEST_F(RecoveryLifecycleTest, SavesReportTheirOutcomeAndBlockedSavesTouchNothing) {
    auto lifecycle = makeLifecycle();
    std::int64_t savedPosition = 5000;
    lifecycle.recoveryDirty = true;
    clock.steadyNs += 0;
    ASSERT_TRUE(lifecycle.saveRecovery(core, media.string(), savedPosition, {}));
    EXPECT_FALSE(lifecycle.recoveryDirty);
    ASSERT_EQ(timing.points.size(), 1u);
    EXPECT_EQ(timing.points[0].name, "Recovery.Action");
    EXPECT_EQ(timing.points[0].detail, "save ok");
    EXPECT_TRUE(status.lines.empty());
    const std::string saved = readWhole(core::recoveryFilePath());

    // A new performance on stage resets the remembered position.
    ASSERT_TRUE(core.advanceForSinger(singer));
    savedPosition = 4200;
    ASSERT_TRUE(lifecycle.saveRecovery(core, media.string(), savedPosition, {}));
    EXPECT_EQ(savedPosition, 0);
    savedPosition = 4200;
    ASSERT_TRUE(lifecycle.saveRecovery(core, media.string(), savedPosition, {}));
    EXPECT_EQ(savedPosition, 4200);

    // A folder in the backup's place makes the save fail; the next good save
    // clears the pending flag without a word.
    fs::remove(core::recoveryBackupPath());
    fs::create_directories(core::recoveryBackupPath());
    const std::string before = readWhole(core::recoveryFilePath());
    EXPECT_FALSE(lifecycle.saveRecovery(core, media.string(), savedPosition, {}));
    EXPECT_TRUE(lifecycle.recoveryDirty);
    EXPECT_EQ(timing.points.back().detail, "save failed");
    EXPECT_EQ(status.last(), shell::kRecoverySaveFailedMessage);
    EXPECT_EQ(readWhole(core::recoveryFilePath()), before);
    fs::remove(core::recoveryBackupPath());
    status.lines.clear();
    ASSERT_TRUE(lifecycle.saveRecovery(core, media.string(), savedPosition, {}));
    EXPECT_FALSE(lifecycle.recoveryDirty);
    EXPECT_TRUE(status.lines.empty());

    // The retry timer saves only while dirty, and then says so.
    EXPECT_FALSE(lifecycle.retrySave(core, media.string(), savedPosition, {}));
    lifecycle.recoveryDirty = true;
    EXPECT_TRUE(lifecycle.retrySave(core, media.string(), savedPosition, {}));
    EXPECT_EQ(status.last(), shell::kRecoverySaveRetriedMessage);

    lifecycle.recoveryBlocked = true;
    lifecycle.recoveryDirty = true;
    const std::string locked = readWhole(core::recoveryFilePath());
    core.addSinger("Bob");
    EXPECT_FALSE(lifecycle.saveRecovery(core, media.string(), savedPosition, {}));
    EXPECT_FALSE(lifecycle.retrySave(core, media.string(), savedPosition, {}));
    EXPECT_EQ(timing.points.back().detail, "save blocked");
    EXPECT_EQ(timing.points.back().elapsedMs, 0u);
    EXPECT_EQ(readWhole(core::recoveryFilePath()), locked);
    EXPECT_NE(saved, locked);
}

TEST_F(RecoveryLifecycleTest, DamagedPrimaryIsKeptAsideAndRepairedFromTheBackup) {
    writeGood(core::recoveryBackupPath(), 2);
    // Cut short in the middle of a save by a newer program: still damaged.
    std::ofstream(core::recoveryFilePath()) << "{\"version\":5,\"mediaFolder\":";
    auto lifecycle = makeLifecycle();
    core::EventCore event;
    std::string mediaFolder;
    std::int64_t savedPosition = 0;
    core::SingerStates singerStates;
    RecoveryReadStatus read{};
    const auto outcome = lifecycle.startupLoad(event, mediaFolder, savedPosition, singerStates, &read);
    EXPECT_EQ(read, RecoveryReadStatus::Complete);
    EXPECT_EQ(outcome.message, shell::kStartupRecoveredMessage);
    EXPECT_EQ(status.last(), shell::kStartupRecoveredMessage);
    EXPECT_FALSE(lifecycle.recoveryBlocked);
    EXPECT_EQ(event.singers().size(), 2u);
    EXPECT_EQ(timing.points.back().detail, "startup load 1");
    const auto corrupt = filesNamed("event-recovery.corrupt-");
    ASSERT_EQ(corrupt.size(), 1u);
    EXPECT_EQ(corrupt[0].filename(), "event-recovery.corrupt-" + std::to_string(clock.ticks) + ".json");
    EXPECT_EQ(readWhole(corrupt[0]), "{\"version\":5,\"mediaFolder\":");
    EXPECT_EQ(readWhole(core::recoveryFilePath()), readWhole(core::recoveryBackupPath()));
}

TEST_F(RecoveryLifecycleTest, BackupThatCannotBeCopiedBackLocksTheEvent) {
    writeGood(core::recoveryBackupPath(), 3);
    std::ofstream(core::recoveryFilePath()) << "garbage";
    auto steps = shell::RecoveryFileSteps::standard();
    steps.copyVerifiedFile = [](const fs::path&, const fs::path&) { return false; };
    auto lifecycle = makeLifecycle(steps);
    core::EventCore event;
    std::string mediaFolder;
    std::int64_t savedPosition = 0;
    core::SingerStates singerStates;
    RecoveryReadStatus read{};
    const auto outcome = lifecycle.startupLoad(event, mediaFolder, savedPosition, singerStates, &read);
    EXPECT_EQ(read, RecoveryReadStatus::RestoredFromBackupOnly);
    EXPECT_TRUE(lifecycle.recoveryBlocked);
    EXPECT_FALSE(lifecycle.partialRecoveryPending);
    EXPECT_TRUE(outcome.showRestoredEvent);
    EXPECT_EQ(event.singers().size(), 3u);
    EXPECT_EQ(status.last(), shell::kStartupBackupOnlyMessage);
    EXPECT_FALSE(lifecycle.guardEventEdit());
    EXPECT_EQ(status.last(), shell::kRecoveryBlockedEditMessage);
    lifecycle.libraryChangeActive = true;
    EXPECT_FALSE(lifecycle.guardEventEdit());
    EXPECT_EQ(status.last(), shell::kLibraryChangeEditMessage);
}

TEST_F(RecoveryLifecycleTest, EachPairOfPrimaryAndBackupGivesItsStatus) {
    auto lifecycle = makeLifecycle();
    // Missing primary, damaged backup: a clean start and not a word.
    std::ofstream(core::recoveryBackupPath()) << "not json";
    core::EventCore event;
    std::string mediaFolder;
    std::int64_t savedPosition = 0;
    core::SingerStates singerStates;
    RecoveryReadStatus read{};
    auto outcome = lifecycle.startupLoad(event, mediaFolder, savedPosition, singerStates, &read);
    EXPECT_EQ(read, RecoveryReadStatus::Missing);
    EXPECT_TRUE(status.lines.empty());
    EXPECT_FALSE(lifecycle.recoveryBlocked);
    EXPECT_TRUE(lifecycle.guardEventEdit());
    EXPECT_EQ(readWhole(core::recoveryBackupPath()), "not json");

    // Damaged primary, newer backup: newer, and both stay as they are.
    std::ofstream(core::recoveryFilePath()) << "[]";
    std::ofstream(core::recoveryBackupPath(), std::ios::trunc) << "{\"version\":9}";
    EXPECT_EQ(load(lifecycle), RecoveryReadStatus::Newer);
    EXPECT_EQ(readWhole(core::recoveryFilePath()), "[]");
    EXPECT_TRUE(filesNamed("event-recovery.corrupt-").empty());

    // Both damaged: the primary is set aside and a clean event starts.
    std::ofstream(core::recoveryBackupPath(), std::ios::trunc) << "{}";
    outcome = lifecycle.startupLoad(event, mediaFolder, savedPosition, singerStates, &read);
    EXPECT_EQ(read, RecoveryReadStatus::Damaged);
    EXPECT_EQ(outcome.message, shell::kStartupDamagedPreservedMessage);
    EXPECT_FALSE(lifecycle.recoveryBlocked);
    EXPECT_FALSE(fs::exists(core::recoveryFilePath()));
    EXPECT_EQ(filesNamed("event-recovery.corrupt-").size(), 1u);

    // A damaged primary that can't be set aside (the name is taken) locks.
    std::ofstream(core::recoveryFilePath()) << "[]";
    outcome = lifecycle.startupLoad(event, mediaFolder, savedPosition, singerStates, &read);
    EXPECT_EQ(outcome.message, shell::kStartupDamagedLockedMessage);
    EXPECT_TRUE(lifecycle.recoveryBlocked);
    EXPECT_EQ(readWhole(core::recoveryFilePath()), "[]");

    // A newer primary is never read past its version, and locks.
    std::ofstream(core::recoveryFilePath(), std::ios::trunc) << "{\"version\":5,\"singers\":7}";
    outcome = lifecycle.startupLoad(event, mediaFolder, savedPosition, singerStates, &read);
    EXPECT_EQ(read, RecoveryReadStatus::Newer);
    EXPECT_TRUE(lifecycle.recoveryBlocked);
    EXPECT_FALSE(outcome.showRestoredEvent);
    EXPECT_EQ(status.last(), shell::kStartupNewerMessage);
    EXPECT_EQ(event.singers().size(), 0u);

    // Missing media: partial, protected until a folder is chosen.
    writeGood(core::recoveryFilePath(), 1);
    fs::remove_all(media);
    outcome = lifecycle.startupLoad(event, mediaFolder, savedPosition, singerStates, &read);
    EXPECT_EQ(read, RecoveryReadStatus::Partial);
    EXPECT_TRUE(lifecycle.recoveryBlocked);
    EXPECT_TRUE(lifecycle.partialRecoveryPending);
    EXPECT_EQ(status.last(), shell::kStartupPartialMessage);
    EXPECT_EQ(event.singers().size(), 1u);
}

TEST_F(RecoveryLifecycleTest, ArchiveCopiesFirstAndMovesAsideAfter) {
    writeGood(core::recoveryFilePath(), 2);
    writeGood(core::recoveryBackupPath(), 1);
    const std::string primary = readWhole(core::recoveryFilePath());
    const std::string backup = readWhole(core::recoveryBackupPath());

    // 64 folders already taken under the same ticks: nothing is cleared.
    auto lifecycle = makeLifecycle();
    const fs::path archives = core::recoveryArchivesPath();
    for (int attempt = 0; attempt < 64; ++attempt) {
        fs::create_directories(archives / ("event-" + std::to_string(clock.ticks) + "-" + std::to_string(attempt)));
    }
    fs::path archive;
    EXPECT_FALSE(lifecycle.archiveRecoveryFiles(archive));
    EXPECT_TRUE(archive.empty());
    EXPECT_EQ(readWhole(core::recoveryFilePath()), primary);
    EXPECT_EQ(readWhole(core::recoveryBackupPath()), backup);

    // The second move fails: the backup is put back under its own name.
    clock.ticks += 1;
    int moves = 0;
    auto steps = shell::RecoveryFileSteps::standard();
    const auto realMove = steps.moveAsideForArchive;
    steps.moveAsideForArchive = [&](const fs::path& source, fs::path& moved) {
        return ++moves == 2 ? false : realMove(source, moved);
    };
    auto failing = makeLifecycle(steps);
    EXPECT_FALSE(failing.archiveRecoveryFiles(archive));
    EXPECT_EQ(moves, 2);
    EXPECT_EQ(readWhole(core::recoveryFilePath()), primary);
    EXPECT_EQ(readWhole(core::recoveryBackupPath()), backup);
    EXPECT_TRUE(filesNamed("event-recovery.json.bak.archived.").empty());
    // The copies that were made stay behind; the program never cleans them.
    const fs::path leftover = archives / ("event-" + std::to_string(clock.ticks) + "-0");
    EXPECT_EQ(readWhole(leftover / "event-recovery.json"), primary);

    clock.ticks += 1;
    ASSERT_TRUE(lifecycle.archiveRecoveryFiles(archive));
    EXPECT_EQ(archive, archives / ("event-" + std::to_string(clock.ticks) + "-0"));
    EXPECT_EQ(readWhole(archive / "event-recovery.json"), primary);
    EXPECT_EQ(readWhole(archive / "event-recovery.json.bak"), backup);
    EXPECT_FALSE(fs::exists(core::recoveryFilePath()));
    EXPECT_FALSE(fs::exists(core::recoveryBackupPath()));
    for (const auto& entry : fs::directory_iterator(dataRoot)) {
        EXPECT_EQ(entry.path().filename().string().find("archived"), std::string::npos) << entry.path();
    }
    // Nothing left to archive.
    EXPECT_FALSE(lifecycle.archiveRecoveryFiles(archive));
}

TEST_F(RecoveryLifecycleTest, WithoutADataRootEverythingFailsQuietly) {
    ::unsetenv("XDG_DATA_HOME");
    const char* home = std::getenv("HOME");
    const std::string savedHome = home != nullptr ? home : "";
    ::unsetenv("HOME");
    auto lifecycle = makeLifecycle();
    std::int64_t savedPosition = 0;
    EXPECT_FALSE(lifecycle.saveRecovery(core, media.string(), savedPosition, {}));
    EXPECT_EQ(load(lifecycle), RecoveryReadStatus::Missing);
    fs::path archive;
    EXPECT_FALSE(lifecycle.archiveRecoveryFiles(archive));
    EXPECT_FALSE(lifecycle.preserveDamagedRecovery());
    if (home != nullptr) ::setenv("HOME", savedHome.c_str(), 1);
}

}  // namespace
}  // namespace tamo::test
