#include "durable_fixture.h"
#include "fixed_paths.h"
#include "recovery_lifecycle.h"
#include "recovery_reader.h"
#include "recovery_writer.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>

namespace tamo::test {
namespace {

namespace fs = std::filesystem;
using shell::RecoveryReadStatus;
using Json = nlohmann::ordered_json;

// Everything a read may hand out, to prove that a refused read handed out
// nothing at all.
struct LiveState {
    core::EventSnapshot event;
    std::vector<core::Song> songs;
    std::string folder;
    std::int64_t position = 0;
    core::SingerStates states;

    friend bool operator==(const LiveState&, const LiveState&) = default;
};

class RecoveryRobustnessTest : public DurableTest {
protected:
    LiveState capture() const { return {live.snapshot(), live.songs(), folder, position, states}; }

    core::EventCore live;
    std::string folder = "/live/folder";
    std::int64_t position = 4242;
    core::SingerStates states;
};

// Replaces a random node of the document by a value of another JSON type,
// drops a key, or nests it deeper: the damage a hand edit or a foreign
// writer could do while the text still parses.
void mutateJson(Json& node, std::mt19937& random, int depth = 0) {
    const bool container = node.is_object() || node.is_array();
    if (container && !node.empty() && depth < 6 && random() % 4 != 0) {
        auto it = node.begin();
        std::advance(it, static_cast<long>(random() % node.size()));
        if (node.is_object() && random() % 5 == 0) {
            node.erase(it.key());
            return;
        }
        mutateJson(*it, random, depth + 1);
        return;
    }
    switch (random() % 9) {
        case 0: node = nullptr; break;
        case 1: node = "text"; break;
        case 2: node = 3.5; break;
        case 3: node = -1; break;
        case 4: node = Json::array({node}); break;
        case 5: node = Json::object({{"x", node}}); break;
        case 6: node = true; break;
        case 7: node = 1e300; break;
        default: node = 2147483648.0; break;
    }
}

TEST_F(RecoveryRobustnessTest, MutatedFilesNeverCrashTheReaderNorTouchALiveEventOnRefusal) {
    const std::string a = addMedia("A - One.mp3");
    const std::string b = addMedia("B - Two.mp4");
    core::EventCore source;
    loadLibrary(source);
    const auto songs = source.songs();
    const std::int32_t ann = source.addSinger("Ann");
    const std::int32_t bob = source.addSinger("Bob \"the voice\" \xC3\xA9");
    source.enqueueForSinger(source.songByPath(a)->id, ann);
    source.enqueueForSinger(source.songByPath(b)->id, bob);
    source.enqueueForSinger(source.songByPath(a)->id, bob);
    source.advanceForSinger(bob);
    source.restoreHistoryEntry(source.songByPath(b)->id, ann, "", 1763160012.25);
    source.restoreHistoryEntry(core::Song{0, "/gone/x.mp3", "X", "Y", "mp3", ""}, 0, "Zed", 17.5);
    ASSERT_TRUE(shell::WriteEventRecovery(shell::RecoveryEventView::of(source), media.string(), 777, {{ann, "Skipped"}}));
    const std::string good = readWhole(core::recoveryFilePath());
    const Json goodJson = Json::parse(good);

    loadLibrary(live);
    live.addSinger("Live singer");
    states[1] = "Away";
    shell::RecoveryReadOptions options;
    options.loadLibrary = [&](const fs::path&) { return std::optional<std::vector<core::Song>>(songs); };

    std::mt19937 random(20240611);
    int accepted = 0;
    for (int round = 0; round < 3000; ++round) {
        std::string text = good;
        switch (round % 3) {
            case 0: {
                const int flips = 1 + static_cast<int>(random() % 4);
                for (int i = 0; i < flips; ++i) text[random() % text.size()] = static_cast<char>(random() % 256);
                break;
            }
            case 1: text.resize(random() % text.size()); break;
            default: {
                Json json = goodJson;
                mutateJson(json, random);
                text = json.dump();
            }
        }
        std::ofstream(core::recoveryFilePath(), std::ios::binary | std::ios::trunc) << text;
        const LiveState before = capture();
        const RecoveryReadStatus status =
            shell::readEventRecovery(core::recoveryFilePath(), live, folder, position, states, options);
        if (status == RecoveryReadStatus::Complete || status == RecoveryReadStatus::Partial) {
            ++accepted;
            EXPECT_LE(live.singers().size(), 2u);
            EXPECT_TRUE(live.current() || live.playbackStatus() == core::PlaybackStatus::Stopped);
            // Put the live event back to a known, different state.
            live = core::EventCore();
            loadLibrary(live);
            live.addSinger("Live singer");
            folder = "/live/folder";
            position = 4242;
            states = {{1, "Away"}};
        } else {
            ASSERT_EQ(capture(), before) << "round " << round << " status " << static_cast<int>(status);
        }
    }
    // Some mutations are harmless (a flipped letter in a title); most are not.
    EXPECT_GT(accepted, 0);
    EXPECT_LT(accepted, 3000);
}

TEST_F(RecoveryRobustnessTest, UnreadableFilesAreNeverOverwrittenByTheLifecycle) {
    FakeClock clock;
    shell::NullTimingSink timing;
    RecordingStatusSink status;
    std::mt19937 random(7);
    core::EventCore event;
    event.addSinger("Ann");
    ASSERT_TRUE(shell::WriteEventRecovery(shell::RecoveryEventView::of(event), "", 0, {}));
    const std::string good = readWhole(core::recoveryFilePath());
    for (int round = 0; round < 200; ++round) {
        for (const auto& entry : fs::directory_iterator(dataRoot)) fs::remove_all(entry.path());
        std::string primary = good;
        std::string backup = good;
        primary.resize(random() % primary.size());
        if (round % 2 == 0) backup[random() % backup.size()] = '}';
        std::ofstream(core::recoveryFilePath(), std::ios::binary) << primary;
        std::ofstream(core::recoveryBackupPath(), std::ios::binary) << backup;
        clock.ticks += 1;
        shell::RecoveryLifecycle lifecycle(shell::RecoveryLocations::standard(), clock, timing, status);
        core::EventCore restored;
        std::string mediaFolder;
        std::int64_t savedPosition = 0;
        core::SingerStates singerStates;
        const auto outcome = lifecycle.startupLoad(restored, mediaFolder, savedPosition, singerStates);
        // Whatever happened, both texts still exist somewhere, byte for byte.
        bool primaryKept = false;
        bool backupKept = false;
        for (const auto& entry : fs::directory_iterator(dataRoot)) {
            const std::string content = readWhole(entry.path());
            primaryKept = primaryKept || content == primary;
            backupKept = backupKept || content == backup;
        }
        EXPECT_TRUE(primaryKept) << round;
        EXPECT_TRUE(backupKept) << round;
        // Saving after a locked start never touches the files.
        std::int64_t zero = 0;
        if (outcome.recoveryBlocked) {
            EXPECT_FALSE(lifecycle.saveRecovery(restored, "", zero, {}));
        }
    }
}

// A child saves an ever newer event as fast as it can; the parent kills it
// with SIGKILL at random moments. After every kill the primary (or, failing
// that, the backup) must read back complete and hold an event no older than
// the one before the last save the child reported as done.
TEST_F(RecoveryRobustnessTest, KilledWhileSavingLeavesAReadableRecentEvent) {
    const auto eventOf = [](std::int64_t generation) {
        core::EventCore event;
        for (int i = 0; i < 20; ++i) event.addSinger("Singer " + std::to_string(i));
        const std::int64_t entries = std::min<std::int64_t>(generation, 400);
        for (std::int64_t i = 0; i < entries; ++i) {
            const std::string path = "/media/song-" + std::to_string(i) + ".mp3";
            event.restoreHistoryEntry(core::Song{0, path, "Song", "Artist", "mp3", ""}, 1, "", 1.7e9 + i);
        }
        return event;
    };
    std::mt19937 random(99);
    std::int64_t verified = 0;
    int kills = 0;
    int savesSeen = 0;
    const auto started = std::chrono::steady_clock::now();
    while (kills < 300 && std::chrono::steady_clock::now() - started < std::chrono::seconds(45)) {
        int pipeEnds[2];
        ASSERT_EQ(::pipe(pipeEnds), 0);
        const std::int64_t base = verified;
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            ::close(pipeEnds[0]);
            for (std::int64_t generation = base + 1;; ++generation) {
                core::EventCore event = eventOf(generation);
                if (!shell::WriteEventRecovery(shell::RecoveryEventView::of(event), "", generation, {})) ::_exit(3);
                if (::write(pipeEnds[1], &generation, sizeof generation) != sizeof generation) ::_exit(4);
            }
        }
        ::close(pipeEnds[1]);
        ::usleep(static_cast<useconds_t>(random() % 60000));
        ::kill(child, SIGKILL);
        int waitStatus = 0;
        ::waitpid(child, &waitStatus, 0);
        ASSERT_TRUE(WIFSIGNALED(waitStatus)) << "the saving child stopped by itself: " << WEXITSTATUS(waitStatus);
        std::int64_t reported = 0;
        std::int64_t value = 0;
        while (::read(pipeEnds[0], &value, sizeof value) == sizeof value) {
            reported = value;
            ++savesSeen;
        }
        ::close(pipeEnds[0]);
        ++kills;

        core::EventCore restored;
        std::string mediaFolder;
        std::int64_t generation = -1;
        core::SingerStates singerStates;
        RecoveryReadStatus status =
            shell::readEventRecovery(core::recoveryFilePath(), restored, mediaFolder, generation, singerStates);
        std::int64_t floor = std::max(reported, verified);
        if (status != RecoveryReadStatus::Complete) {
            status = shell::readEventRecovery(core::recoveryBackupPath(), restored, mediaFolder, generation,
                                              singerStates);
            floor = std::max<std::int64_t>(reported - 1, verified - 1);
        }
        if (reported == 0 && verified == 0 && status == RecoveryReadStatus::Missing) continue;
        ASSERT_EQ(status, RecoveryReadStatus::Complete) << "kill " << kills;
        ASSERT_GE(generation, floor) << "kill " << kills;
        EXPECT_EQ(restored.history().size(), static_cast<std::size_t>(std::min<std::int64_t>(generation, 400)));
        verified = generation;
    }
    EXPECT_GE(kills, 100);
    // Enough saves completed between kills for the floor to mean something.
    EXPECT_GE(savesSeen, 20);
}

}  // namespace
}  // namespace tamo::test
