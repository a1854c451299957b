#include "bounded_read.h"
#include "file_kind.h"
#include "file_test_support.h"
#include "temp_dir.h"

#include <atomic>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace tamo::core {
namespace {
namespace fs = std::filesystem;

TEST(FileKind, TellsPlainFilesFromEverythingElse) {
    test::TempDir dir;
    const auto file = dir.write("event-recovery.json", "{}");
    fs::create_directory(dir / "folder");
    fs::create_symlink(file, dir / "link.json");
    fs::create_symlink(dir / "nowhere", dir / "dangling.json");
    ASSERT_EQ(::mkfifo((dir / "pipe").c_str(), 0600), 0);

    EXPECT_EQ(getFileKind(file), FileKind::RegularFile);
    EXPECT_EQ(getFileKind(dir / "absent.json"), FileKind::Missing);
    EXPECT_EQ(getFileKind(file / "below-a-file"), FileKind::Missing);
    EXPECT_EQ(getFileKind(dir / "folder"), FileKind::NotRegularFile);
    EXPECT_EQ(getFileKind(dir / "link.json"), FileKind::NotRegularFile);
    EXPECT_EQ(getFileKind(dir / "dangling.json"), FileKind::NotRegularFile);
    EXPECT_EQ(getFileKind(dir / "pipe"), FileKind::NotRegularFile);
    EXPECT_EQ(getFileKind("/dev/null"), FileKind::NotRegularFile);

    if (::geteuid() != 0) {
        fs::create_directory(dir / "closed");
        dir.write("closed/inside.json", "x");
        fs::permissions(dir / "closed", fs::perms::none);
        EXPECT_EQ(getFileKind(dir / "closed" / "inside.json"), FileKind::Unreadable);
        fs::permissions(dir / "closed", fs::perms::owner_all);
    }
}

TEST(BoundedRead, ReadsWholeFilesWithinTheLimitOnly) {
    test::TempDir dir;
    const std::string content(1000, 'a');
    const auto file = dir.write("tamo.json", content);
    EXPECT_EQ(readBoundedFile(file, 1000), content);
    EXPECT_EQ(readBoundedFile(file, 999), std::nullopt);

    // An empty file is a failure, not an empty document.
    EXPECT_EQ(readBoundedFile(dir.write("empty.json", ""), 1000), std::nullopt);
    EXPECT_EQ(readBoundedFile(dir / "missing.json", 1000), std::nullopt);
    EXPECT_EQ(readBoundedFile("", 1000), std::nullopt);

    // Exactly 32 MiB is read; one byte more is refused.
    const std::string big(0x2000000, 'z');
    const auto large = dir.write("event-recovery.json", big);
    EXPECT_EQ(readBoundedFile(large, 0x2000000).value_or("").size(), big.size());
    fs::resize_file(large, 0x2000001);
    EXPECT_EQ(readBoundedFile(large, 0x2000000), std::nullopt);
}

TEST(BoundedRead, RefusesLinksFoldersAndDevicesEvenToGoodFiles) {
    test::TempDir dir;
    const auto good = dir.write("good.json", "{\"a\":1}");
    fs::create_symlink(good, dir / "event-recovery.json");
    fs::create_directory(dir / "folder.json");
    ASSERT_EQ(::mkfifo((dir / "pipe.json").c_str(), 0600), 0);

    EXPECT_EQ(readBoundedFile(dir / "event-recovery.json", 100), std::nullopt);
    EXPECT_EQ(readBoundedFile(dir / "folder.json", 100), std::nullopt);
    // A FIFO is refused at once rather than waited on.
    EXPECT_EQ(readBoundedFile(dir / "pipe.json", 100), std::nullopt);
    EXPECT_EQ(readBoundedFile("/dev/zero", 100), std::nullopt);
    EXPECT_TRUE(readBoundedFile(good, 100).has_value());
}

TEST(BoundedRead, RefusesAFileThatGrowsWhileItIsRead) {
    test::TempDir dir;
    const auto file = dir.write("growing.json", std::string(4 << 20, 'g'));
    std::atomic<bool> stop{false};
    std::thread writer([&] {
        const int fd = ::open(file.c_str(), O_WRONLY | O_APPEND);
        while (!stop.load()) {
            if (::write(fd, "x", 1) != 1) break;
        }
        ::close(fd);
    });
    int refusals = 0;
    for (int i = 0; i < 50 && refusals == 0; ++i) {
        if (!readBoundedFile(file, 1u << 30)) ++refusals;
    }
    stop = true;
    writer.join();
    EXPECT_GT(refusals, 0);

    // Once it stands still the same file reads whole.
    const auto settled = readBoundedFile(file, 1u << 30);
    ASSERT_TRUE(settled.has_value());
    EXPECT_EQ(settled->size(), fs::file_size(file));
}

}  // namespace
}  // namespace tamo::core
