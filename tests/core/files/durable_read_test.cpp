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
    const std::pair<fs::path, FileKind> cases[] = {
        {file, FileKind::RegularFile},           {dir / "absent.json", FileKind::Missing},
        {file / "below", FileKind::Missing},     {dir / "folder", FileKind::NotRegularFile},
        {dir / "link.json", FileKind::NotRegularFile}, {dir / "dangling.json", FileKind::NotRegularFile},
        {dir / "pipe", FileKind::NotRegularFile}, {"/dev/null", FileKind::NotRegularFile},
    };
    for (const auto& [path, kind] : cases) EXPECT_EQ(getFileKind(path), kind) << path;

    if (::geteuid() != 0) {
        dir.write("closed/inside.json", "x");
        fs::permissions(dir / "closed", fs::perms::none);
        EXPECT_EQ(getFileKind(dir / "closed" / "inside.json"), FileKind::Unreadable);
    }
}

TEST(BoundedRead, ReadsWholePlainFilesWithinTheLimitOnly) {
    test::TempDir dir;
    const std::string content(1000, 'a');
    const auto file = dir.write("tamo.json", content);
    EXPECT_EQ(readBoundedFile(file, 1000), content);
    EXPECT_EQ(readBoundedFile(file, 999), std::nullopt);

    // An empty file is a failure, not an empty document. A link is refused
    // even to a good file, and a FIFO at once rather than waited on.
    fs::create_symlink(file, dir / "event-recovery.json");
    fs::create_directory(dir / "folder.json");
    ASSERT_EQ(::mkfifo((dir / "pipe.json").c_str(), 0600), 0);
    for (const fs::path& refused : {dir.write("empty.json", ""), dir / "missing.json", fs::path(),
                                    dir / "event-recovery.json", dir / "folder.json", dir / "pipe.json",
                                    fs::path("/dev/zero")}) {
        EXPECT_EQ(readBoundedFile(refused, 1000), std::nullopt) << refused;
    }

    // Exactly 32 MiB is read; one byte more is refused.
    const auto large = dir.write("event-recovery.json.bak", std::string(0x2000000, 'z'));
    EXPECT_EQ(readBoundedFile(large, 0x2000000).value_or("").size(), 0x2000000u);
    fs::resize_file(large, 0x2000001);
    EXPECT_EQ(readBoundedFile(large, 0x2000000), std::nullopt);
}

TEST(BoundedRead, RefusesAFileThatGrowsWhileItIsRead) {
    test::TempDir dir;
    const auto file = dir.write("growing.json", std::string(4 << 20, 'g'));
    std::atomic<bool> stop{false};
    std::thread writer([&] {
        const int fd = ::open(file.c_str(), O_WRONLY | O_APPEND);
        while (!stop.load() && ::write(fd, "x", 1) == 1) {
        }
        ::close(fd);
    });
    bool refused = false;
    for (int i = 0; i < 50 && !refused; ++i) refused = !readBoundedFile(file, 1u << 30);
    stop = true;
    writer.join();
    EXPECT_TRUE(refused);

    // Once it stands still the same file reads whole.
    EXPECT_EQ(readBoundedFile(file, 1u << 30).value_or("").size(), fs::file_size(file));
}

}  // namespace
}  // namespace tamo::core
