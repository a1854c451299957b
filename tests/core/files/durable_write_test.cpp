#include "file_test_support.h"
#include "move_aside.h"
#include "replace_commit.h"
#include "temp_dir.h"
#include "temporary_name.h"
#include "verified_copy.h"
#include "verified_write.h"

#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>

namespace tamo::core {
namespace {
namespace fs = std::filesystem;
using test::namesWith;
using test::slurp;

TEST(VerifiedTemporary, HoldsExactlyTheBytesBesideTheTargetOrNothingIsLeft) {
    test::TempDir dir;
    fs::path temporary;
    const std::string content = std::string(200000, 'q') + "end";
    ASSERT_TRUE(writeVerifiedTemporary(dir / "tamo.json", content, temporary));
    EXPECT_EQ(slurp(temporary), content);
    EXPECT_FALSE(fs::exists(dir / "tamo.json"));
    // "<name>.write-tmp.<pid>.<tid>.<ms>.<sequence>.<attempt>", fresh each time.
    EXPECT_EQ(temporary.parent_path(), dir.path());
    const std::string name = temporary.filename().string();
    EXPECT_EQ(name.rfind("tamo.json.write-tmp." + std::to_string(::getpid()) + "." + std::to_string(::gettid()) + ".", 0),
              0u) << name;
    EXPECT_EQ(name.substr(name.size() - 2), ".0");
    ASSERT_TRUE(writeVerifiedTemporary(dir / "tamo.json", "", temporary));
    EXPECT_NE(temporary.filename().string(), name);
    EXPECT_EQ(fs::file_size(temporary), 0u);

    temporary = "unchanged";
    EXPECT_FALSE(writeVerifiedTemporary(dir / "no-such-folder" / "tamo.json", "x", temporary));
    EXPECT_TRUE(temporary.empty());
    EXPECT_FALSE(writeVerifiedTemporary("", "x", temporary));
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
    const auto huge = dir.write("huge.json", "h");
    fs::resize_file(huge, kMaxVerifiedCopyBytes + 1);
    const std::pair<fs::path, fs::path> refused[] = {
        {dir / "link.json", backup}, {dir / "folder.bak", backup}, {dir / "absent.json", backup},
        {primary, dir / "folder.bak"}, {primary, dir / "link.bak"}, {huge, backup},
    };
    for (const auto& [source, target] : refused) EXPECT_FALSE(copyVerifiedFile(source, target)) << source << target;
    EXPECT_FALSE(fs::exists(dir / "elsewhere.bak"));
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
    const std::size_t ticksDot = head.rfind('.', sequenceDot - 1);
    const std::string sequence = std::to_string(std::stoull(head.substr(sequenceDot + 1)) + 1);
    const std::uint64_t ticks = std::stoull(head.substr(ticksDot + 1, sequenceDot - ticksDot - 1));
    for (std::uint64_t t = ticks; t < ticks + 3000; ++t) {
        std::ofstream(dir / (head.substr(0, ticksDot + 1) + std::to_string(t) + "." + sequence + ".0")) << "taken";
    }

    fs::path moved;
    ASSERT_TRUE(moveAsideForArchive(source, moved));
    EXPECT_FALSE(fs::exists(source));
    EXPECT_EQ(slurp(moved), "event");
    EXPECT_EQ(moved.string().substr(moved.string().size() - 2), ".1");
    for (const std::string& name : namesWith(dir.path(), ".archived.")) {
        EXPECT_TRUE(dir / name == moved || slurp(dir / name) == "taken") << name;
    }

    fs::create_directory(dir / "folder.json");
    EXPECT_FALSE(moveAsideForArchive(dir / "folder.json", moved));
    EXPECT_TRUE(moved.empty());
    EXPECT_FALSE(moveAsideForArchive(dir / "absent.json", moved));

    // The rename underneath refuses a taken name itself.
    const auto from = dir.write("a", "a");
    EXPECT_FALSE(renameWithoutReplacing(from, dir.write("b", "b")));
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(slurp(dir / "b"), "b");
    EXPECT_TRUE(renameWithoutReplacing(from, dir / "c"));
    EXPECT_EQ(slurp(dir / "c"), "a");
}

TEST(ReplaceCommit, ReplacesWholeOrLeavesTheTargetAlone) {
    test::TempDir dir;
    const fs::path target = dir / "event-recovery.json";
    const fs::path backup = dir / "event-recovery.json.bak";
    ASSERT_TRUE(replaceFileVerified(target, "first", 100));
    ASSERT_TRUE(replaceFileVerified(target, "second", 100));
    EXPECT_EQ(slurp(target), "second");
    // Empty or oversized content, or a folder or link at the target, stop the
    // write before anything exists.
    fs::create_directory(dir / "folder.json");
    fs::create_symlink(target, dir / "link.json");
    const std::pair<fs::path, std::string> refused[] = {
        {target, ""}, {target, std::string(101, 'x')}, {"", "x"}, {dir / "folder.json", "x"}, {dir / "link.json", "x"}};
    for (const auto& [path, bytes] : refused) EXPECT_FALSE(replaceFileVerified(path, bytes, 100)) << path;
    EXPECT_EQ(slurp(target), "second");
    fs::remove(target);

    // Somebody else writes the target, removes it, or links a watched path.
    {
        ReplaceCommit commit(target, {backup});
        ASSERT_TRUE(commit.begin());
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
    dir.write("event-recovery.json", "old");
    {
        // A watched path that turns into a link between the steps.
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
    ReplaceCommit badBackup(target, {dir / "bad.bak"});
    EXPECT_FALSE(badBackup.begin());
    EXPECT_FALSE(badBackup.writeTemporary("x"));

    // The recovery save's own step, refreshing the backup, fits between the
    // verified temporary and the rename.
    fs::remove(target);
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
