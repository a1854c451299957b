#include "durable_fixture.h"
#include "fixed_paths.h"
#include "recovery_lifecycle.h"
#include "recovery_messages.h"

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
        return shell::RecoveryLifecycle(shell::RecoveryLocations::standard(), clock, rec, rec, std::move(steps));
    }
    bool save(shell::RecoveryLifecycle& lifecycle) {
        return lifecycle.saveRecovery(core, media.string(), position, {});
    }

    // A good file at path holding an event with `singers` singers.
    void writeGood(const fs::path& path, int singers) {
        core::EventCore event;
        loadLibrary(event);
        for (int i = 0; i < singers; ++i) event.addSinger("Singer " + std::to_string(i));
        ASSERT_TRUE(shell::WriteEventRecovery(shell::RecoveryEventView::of(event), media.string(), 0, {},
                                              {path, path.string() + ".side"}));
    }

    FakeClock clock;
    Recorder rec;
    core::EventCore core;
    std::int32_t singer = 0;
    std::int64_t position = 0;
    // What a load hands out.
    core::EventCore event;
    std::string folder;
    core::SingerStates states;
};

TEST_F(RecoveryLifecycleTest, SavesReportTheirOutcomeAndBlockedSavesTouchNothing) {
    const fs::path primary = core::recoveryFilePath();
    auto lifecycle = makeLifecycle();
    lifecycle.recoveryDirty = true;
    ASSERT_TRUE(save(lifecycle));
    EXPECT_FALSE(lifecycle.recoveryDirty);
    // A new performance on stage resets the remembered position, once.
    ASSERT_TRUE(core.advanceForSinger(singer));
    position = 4200;
    ASSERT_TRUE(save(lifecycle));
    EXPECT_EQ(position, 0);
    position = 4200;
    ASSERT_TRUE(save(lifecycle));
    EXPECT_EQ(position, 4200);

    // A folder in the backup's place makes the save fail and keep the file;
    // the next good save clears the pending flag without a word; the retry
    // timer saves only while dirty, and then says so.
    fs::remove(core::recoveryBackupPath());
    fs::create_directories(core::recoveryBackupPath());
    const std::string before = readWhole(primary);
    core.addSinger("Bob");
    EXPECT_FALSE(save(lifecycle));
    EXPECT_TRUE(lifecycle.recoveryDirty);
    EXPECT_EQ(readWhole(primary), before);
    fs::remove(core::recoveryBackupPath());
    ASSERT_TRUE(save(lifecycle));
    EXPECT_FALSE(lifecycle.recoveryDirty);
    EXPECT_FALSE(lifecycle.retrySave(core, media.string(), position, {}));
    lifecycle.recoveryDirty = true;
    EXPECT_TRUE(lifecycle.retrySave(core, media.string(), position, {}));

    lifecycle.recoveryBlocked = true;
    lifecycle.recoveryDirty = true;
    const std::string locked = readWhole(primary);
    core.addSinger("Cy");
    EXPECT_FALSE(save(lifecycle));
    EXPECT_FALSE(lifecycle.retrySave(core, media.string(), position, {}));
    EXPECT_EQ(readWhole(primary), locked);
    const std::string point = "Recovery.Action 0 save ";
    EXPECT_EQ(rec.points, (std::vector<std::string>{point + "ok", point + "ok", point + "ok", point + "failed",
                                                    point + "ok", point + "ok", point + "blocked"}));
    EXPECT_EQ(rec.lines, (std::vector<std::string>{std::string(shell::kRecoverySaveFailedMessage),
                                                   std::string(shell::kRecoverySaveRetriedMessage)}));
}

TEST_F(RecoveryLifecycleTest, EachPairOfPrimaryAndBackupGivesItsOutcomeAndLosesNothing) {
    using Status = RecoveryReadStatus;
    const std::string corruptName = "event-recovery.corrupt-" + std::to_string(clock.ticks) + ".json";
    struct Case {
        const char* name;
        const char* primary;  // nullptr: no file; "good N": a good event of N singers
        const char* backup;
        const char* failingStep;
        Status status;
        std::string_view message;
        std::size_t singers;  // in the event handed out
        int corruptCopies;
    };
    const std::vector<Case> cases = {
        {"good primary", "good 1", nullptr, "", Status::Complete, shell::kStartupRecoveredMessage, 1, 0},
        // Cut short while a newer program saved: damaged all the same.
        {"damaged primary, good backup", "{\"version\":5,\"mediaFolder\":", "good 2", "", Status::Complete,
         shell::kStartupRecoveredMessage, 2, 1},
        {"missing primary, good backup", nullptr, "good 2", "", Status::Complete, shell::kStartupRecoveredMessage, 2,
         0},
        {"backup that can't be copied back", "garbage", "good 3", "copy", Status::RestoredFromBackupOnly,
         shell::kStartupBackupOnlyMessage, 3, 1},
        {"missing primary, damaged backup", nullptr, "not json", "", Status::Missing, "", 0, 0},
        {"damaged primary, newer backup", "[]", "{\"version\":9}", "", Status::Newer, shell::kStartupNewerMessage, 0,
         0},
        {"newer primary", "{\"version\":5,\"singers\":7}", nullptr, "", Status::Newer, shell::kStartupNewerMessage, 0,
         0},
        {"both damaged", "[]", "{}", "", Status::Damaged, shell::kStartupDamagedPreservedMessage, 0, 1},
        {"damaged primary that can't be set aside", "[]", nullptr, "rename", Status::Damaged,
         shell::kStartupDamagedLockedMessage, 0, 0},
        // Last, since the media folder goes.
        {"media gone", "good 1", nullptr, "media", Status::Partial, shell::kStartupPartialMessage, 1, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        for (const auto& entry : fs::directory_iterator(dataRoot)) fs::remove_all(entry.path());
        std::vector<std::string> texts;
        for (const auto& [text, path] : {std::pair{c.primary, core::recoveryFilePath()},
                                         std::pair{c.backup, core::recoveryBackupPath()}}) {
            if (text == nullptr) continue;
            if (std::string_view(text).starts_with("good ")) writeGood(path, std::stoi(text + 5));
            else writeText(path, text);
            texts.push_back(readWhole(path));
        }
        auto steps = shell::RecoveryFileSteps::standard();
        if (std::string_view(c.failingStep) == "copy") steps.copyVerifiedFile = [](auto&, auto&) { return false; };
        if (std::string_view(c.failingStep) == "rename") {
            steps.renameWithoutReplacing = [](auto&, auto&) { return false; };
        }
        if (std::string_view(c.failingStep) == "media") fs::remove_all(media);
        auto lifecycle = makeLifecycle(steps);
        rec = {};
        event = core::EventCore();
        RecoveryReadStatus read{};
        const auto outcome = lifecycle.startupLoad(event, folder, position, states, &read);

        EXPECT_EQ(read, c.status);
        EXPECT_EQ(rec.points.back(), "Recovery.Action 0 startup load " + std::to_string(static_cast<int>(c.status)));
        EXPECT_EQ(rec.lastLine(), c.message);
        EXPECT_EQ(outcome.message, c.message);
        EXPECT_EQ(event.singers().size(), c.singers);
        const std::vector<std::string> names = namesIn(dataRoot);
        EXPECT_EQ(std::count(names.begin(), names.end(), corruptName), c.corruptCopies);
        if (c.backup != nullptr && c.status == Status::Complete) {
            EXPECT_EQ(readWhole(core::recoveryFilePath()), readWhole(core::recoveryBackupPath()));
        }
        const bool locked = c.status == Status::Partial || c.status == Status::RestoredFromBackupOnly ||
                            c.status == Status::Newer || c.message == shell::kStartupDamagedLockedMessage;
        EXPECT_EQ(lifecycle.recoveryBlocked, locked);
        EXPECT_EQ(lifecycle.partialRecoveryPending, c.status == Status::Partial);
        EXPECT_EQ(lifecycle.guardEventEdit(), !locked);
        if (locked) {
            EXPECT_EQ(rec.lastLine(), shell::kRecoveryBlockedEditMessage);
        }
        lifecycle.libraryChangeActive = true;
        EXPECT_FALSE(lifecycle.guardEventEdit());
        EXPECT_EQ(rec.lastLine(), shell::kLibraryChangeEditMessage);
        // Whatever happened, each file that was there is still there somewhere.
        for (const std::string& text : texts) {
            bool kept = false;
            for (const auto& entry : fs::directory_iterator(dataRoot)) kept = kept || readWhole(entry.path()) == text;
            EXPECT_TRUE(kept);
        }
    }
}

TEST_F(RecoveryLifecycleTest, ArchiveCopiesFirstAndMovesAsideAfter) {
    writeGood(core::recoveryFilePath(), 2);
    writeGood(core::recoveryBackupPath(), 1);
    const std::string primary = readWhole(core::recoveryFilePath());
    const std::string backup = readWhole(core::recoveryBackupPath());
    const auto folderAt = [&](int attempt) {
        return core::recoveryArchivesPath() / ("event-" + std::to_string(clock.ticks) + "-" + std::to_string(attempt));
    };
    const auto bothInPlace = [&] {
        return readWhole(core::recoveryFilePath()) == primary && readWhole(core::recoveryBackupPath()) == backup;
    };

    // 64 folders already taken under the same ticks: nothing is cleared.
    auto lifecycle = makeLifecycle();
    for (int attempt = 0; attempt < 64; ++attempt) fs::create_directories(folderAt(attempt));
    fs::path archive;
    EXPECT_FALSE(lifecycle.archiveRecoveryFiles(archive));
    EXPECT_TRUE(archive.empty());
    EXPECT_TRUE(bothInPlace());

    // The second move fails: the backup is put back under its own name, and
    // the copies stay behind; the program never cleans them.
    clock.ticks += 1;
    int moves = 0;
    auto steps = shell::RecoveryFileSteps::standard();
    steps.moveAsideForArchive = [&, real = steps.moveAsideForArchive](const fs::path& source, fs::path& moved) {
        return ++moves != 2 && real(source, moved);
    };
    EXPECT_FALSE(makeLifecycle(steps).archiveRecoveryFiles(archive));
    EXPECT_EQ(moves, 2);
    EXPECT_TRUE(bothInPlace());
    EXPECT_EQ(readWhole(folderAt(0) / "event-recovery.json"), primary);

    clock.ticks += 1;
    ASSERT_TRUE(lifecycle.archiveRecoveryFiles(archive));
    EXPECT_EQ(archive, folderAt(0));
    EXPECT_EQ(readWhole(archive / "event-recovery.json"), primary);
    EXPECT_EQ(readWhole(archive / "event-recovery.json.bak"), backup);
    EXPECT_EQ(namesIn(dataRoot), (std::vector<std::string>{"media-index-cache.tsv", "recovery-archives"}));
    EXPECT_FALSE(lifecycle.archiveRecoveryFiles(archive)) << "nothing left to archive";

    // Without a data root every step fails quietly.
    const ScopedEnv noDataHome("XDG_DATA_HOME", nullptr);
    const ScopedEnv noHome("HOME", nullptr);
    auto rootless = makeLifecycle();
    EXPECT_FALSE(rootless.archiveRecoveryFiles(archive) || rootless.preserveDamagedRecovery() || save(rootless));
    EXPECT_EQ(rootless.loadRecoveryWithBackup(event, folder, position, states), RecoveryReadStatus::Missing);
}

}  // namespace
}  // namespace tamo::test
