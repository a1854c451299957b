#include "file_test_support.h"
#include "move_aside.h"
#include "replace_commit.h"
#include "temp_dir.h"
#include "temporary_name.h"
#include "verified_copy.h"
#include "verified_write.h"

#include <ctime>
#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>

namespace tamo::core {
namespace {
namespace fs = std::filesystem;
using test::namesWith;
using test::slurp;

TEST(TemporaryName, StandsBesideTheTargetAndNeverRepeats) {
    const fs::path target = "/data/Tamo/event-recovery.json";
    const fs::path first = temporaryPathFor(target, kWriteTemporaryMarker, 0);
    const fs::path second = temporaryPathFor(target, kWriteTemporaryMarker, 0);
    EXPECT_EQ(first.parent_path(), target.parent_path());
    const std::string name = first.filename().string();
    const std::string expectedStart = "event-recovery.json.write-tmp." + std::to_string(::getpid()) + "." +
                                      std::to_string(::gettid()) + ".";
    EXPECT_EQ(name.rfind(expectedStart, 0), 0u) << name;
    EXPECT_EQ(name.substr(name.size() - 2), ".0");
    EXPECT_NE(first, second);
    EXPECT_EQ(temporaryPathFor(target, kArchivedMarker, 7).filename().string().find(".archived."),
              std::string("event-recovery.json").size());
}

TEST(VerifiedTemporary, HoldsExactlyTheBytesOrNothingIsLeft) {
    test::TempDir dir;
    const fs::path target = dir / "tamo.json";
    fs::path temporary;
    const std::string content = std::string(200000, 'q') + "end";
    ASSERT_TRUE(writeVerifiedTemporary(target, content, temporary));
    EXPECT_EQ(temporary.parent_path(), dir.path());
    EXPECT_NE(temporary.filename().string().find(".write-tmp."), std::string::npos);
    EXPECT_EQ(slurp(temporary), content);
    EXPECT_FALSE(fs::exists(target));

    fs::path empty;
    ASSERT_TRUE(writeVerifiedTemporary(target, "", empty));
    EXPECT_EQ(fs::file_size(empty), 0u);

    fs::path failed = "unchanged";
    EXPECT_FALSE(writeVerifiedTemporary(dir / "no-such-folder" / "tamo.json", "x", failed));
    EXPECT_TRUE(failed.empty());
    EXPECT_FALSE(writeVerifiedTemporary("", "x", failed));
}

TEST(VerifiedCopy, ReplacesTheTargetOnlyWithAVerifiedCopy) {
    test::TempDir dir;
    const auto primary = dir.write("event-recovery.json", "new event");
    const auto backup = dir.write("event-recovery.json.bak", "old event");
    ASSERT_TRUE(copyVerifiedFile(primary, backup));
    EXPECT_EQ(slurp(backup), "new event");
    ASSERT_TRUE(copyVerifiedFile(primary, dir / "fresh.bak"));
    EXPECT_EQ(slurp(dir / "fresh.bak"), "new event");

    // Refusals leave the target as it was and no temporary behind.
    fs::create_symlink(primary, dir / "link.json");
    fs::create_directory(dir / "folder.bak");
    fs::create_symlink(dir / "elsewhere.bak", dir / "link.bak");
    EXPECT_FALSE(copyVerifiedFile(dir / "link.json", backup));
    EXPECT_FALSE(copyVerifiedFile(dir / "folder.bak", backup));
    EXPECT_FALSE(copyVerifiedFile(dir / "absent.json", backup));
    EXPECT_FALSE(copyVerifiedFile(primary, dir / "folder.bak"));
    EXPECT_FALSE(copyVerifiedFile(primary, dir / "link.bak"));
    EXPECT_FALSE(fs::exists(dir / "elsewhere.bak"));

    const auto huge = dir.write("huge.json", "h");
    fs::resize_file(huge, kMaxVerifiedCopyBytes + 1);
    EXPECT_FALSE(copyVerifiedFile(huge, backup));
    EXPECT_EQ(slurp(backup), "new event");
    EXPECT_TRUE(namesWith(dir.path(), ".copy-tmp.").empty());
}

TEST(MoveAside, NeverReplacesAnExistingName) {
    test::TempDir dir;
    const auto source = dir.write("event-recovery.json", "event");

    // Occupy every name the first attempt could take in the next few
    // seconds: the next sequence number follows the one used just now.
    const std::string probe = temporaryPathFor(source, kArchivedMarker, 0).filename().string();
    const std::string head = probe.substr(0, probe.size() - 2);  // without ".0"
    const std::size_t sequenceDot = head.rfind('.');
    const std::uint64_t nextSequence = std::stoull(head.substr(sequenceDot + 1)) + 1;
    const std::size_t ticksDot = head.rfind('.', sequenceDot - 1);
    const std::string stem = head.substr(0, ticksDot + 1);
    const std::uint64_t ticks = std::stoull(head.substr(ticksDot + 1, sequenceDot - ticksDot - 1));
    for (std::uint64_t t = ticks; t < ticks + 3000; ++t) {
        std::ofstream(dir / (stem + std::to_string(t) + "." + std::to_string(nextSequence) + ".0")) << "taken";
    }

    fs::path moved;
    ASSERT_TRUE(moveAsideForArchive(source, moved));
    EXPECT_FALSE(fs::exists(source));
    EXPECT_EQ(slurp(moved), "event");
    EXPECT_EQ(moved.filename().string().substr(moved.filename().string().size() - 2), ".1");
    for (const std::string& name : namesWith(dir.path(), ".archived.")) {
        if (dir / name != moved) {
            EXPECT_EQ(slurp(dir / name), "taken") << name;
        }
    }

    fs::create_directory(dir / "folder.json");
    EXPECT_FALSE(moveAsideForArchive(dir / "folder.json", moved));
    EXPECT_TRUE(moved.empty());
    EXPECT_FALSE(moveAsideForArchive(dir / "absent.json", moved));
}

TEST(RenameWithoutReplacing, RefusesATakenName) {
    test::TempDir dir;
    const auto from = dir.write("a", "a");
    const auto taken = dir.write("b", "b");
    EXPECT_FALSE(renameWithoutReplacing(from, taken));
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(slurp(taken), "b");
    EXPECT_TRUE(renameWithoutReplacing(from, dir / "c"));
    EXPECT_EQ(slurp(dir / "c"), "a");
}

TEST(ReplaceCommit, ReplacesWholeOrLeavesTheTargetAlone) {
    test::TempDir dir;
    const fs::path target = dir / "tamo.json";
    ASSERT_TRUE(replaceFileVerified(target, "first", 100));
    ASSERT_TRUE(replaceFileVerified(target, "second", 100));
    EXPECT_EQ(slurp(target), "second");
    EXPECT_FALSE(replaceFileVerified(target, "", 100));
    EXPECT_FALSE(replaceFileVerified(target, std::string(101, 'x'), 100));
    EXPECT_FALSE(replaceFileVerified("", "x", 100));
    EXPECT_EQ(slurp(target), "second");

    // A folder or link at the target stops the write before anything exists.
    fs::create_directory(dir / "folder.json");
    EXPECT_FALSE(replaceFileVerified(dir / "folder.json", "x", 100));
    fs::create_symlink(target, dir / "link.json");
    EXPECT_FALSE(replaceFileVerified(dir / "link.json", "x", 100));
    EXPECT_EQ(slurp(target), "second");
    EXPECT_TRUE(namesWith(dir.path(), ".write-tmp.").empty());
}

TEST(ReplaceCommit, AbandonsTheWriteWhenSomebodyElseTouchesTheFiles) {
    test::TempDir dir;
    const fs::path target = dir / "event-recovery.json";
    const fs::path backup = dir / "event-recovery.json.bak";
    {
        ReplaceCommit commit(target, {backup});
        ASSERT_TRUE(commit.begin());
        EXPECT_EQ(commit.targetKind(), FileKind::Missing);
        dir.write("event-recovery.json", "written by another program");
        EXPECT_FALSE(commit.writeTemporary("mine"));
    }
    EXPECT_EQ(slurp(target), "written by another program");
    {
        ReplaceCommit commit(target, {backup});
        ASSERT_TRUE(commit.begin());
        ASSERT_TRUE(commit.writeTemporary("mine"));
        fs::remove(target);
        EXPECT_FALSE(commit.commit());
    }
    EXPECT_FALSE(fs::exists(target));
    {
        // A watched path that turns into a link between the steps.
        dir.write("event-recovery.json", "old");
        ReplaceCommit commit(target, {backup});
        ASSERT_TRUE(commit.begin());
        fs::create_symlink(target, backup);
        EXPECT_FALSE(commit.writeTemporary("mine"));
        fs::remove(backup);
    }
    {
        // Dropped without commit: the temporary goes with the object.
        ReplaceCommit commit(target);
        ASSERT_TRUE(commit.begin());
        ASSERT_TRUE(commit.writeTemporary("never committed"));
        EXPECT_TRUE(fs::exists(commit.temporaryPath()));
    }
    EXPECT_EQ(slurp(target), "old");
    EXPECT_TRUE(namesWith(dir.path(), ".write-tmp.").empty());

    fs::create_directory(dir / "bad.bak");
    ReplaceCommit refused(target, {dir / "bad.bak"});
    EXPECT_FALSE(refused.begin());
    EXPECT_FALSE(refused.writeTemporary("x"));
}

TEST(ReplaceCommit, CarriesABackupStepBetweenWriteAndRename) {
    test::TempDir dir;
    const fs::path target = dir / "event-recovery.json";
    const fs::path backup = dir / "event-recovery.json.bak";
    const auto save = [&](const std::string& content) {
        ReplaceCommit commit(target, {backup});
        if (!commit.begin() || !commit.writeTemporary(content)) return false;
        if (commit.targetKind() == FileKind::RegularFile && !copyVerifiedFile(target, backup)) return false;
        return commit.commit();
    };
    ASSERT_TRUE(save("one"));
    EXPECT_FALSE(fs::exists(backup));
    ASSERT_TRUE(save("two"));
    ASSERT_TRUE(save("three"));
    EXPECT_EQ(slurp(target), "three");
    EXPECT_EQ(slurp(backup), "two");
    EXPECT_TRUE(namesWith(dir.path(), "-tmp.").empty());
}

}  // namespace
}  // namespace tamo::core
