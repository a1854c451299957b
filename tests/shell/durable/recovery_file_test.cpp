#include "durable_fixture.h"
#include "fixed_paths.h"
#include "recovery_writer.h"
#include "tool_run.h"

#include <nlohmann/json.hpp>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <map>
#include <random>
#include <sstream>

namespace tamo::test {
namespace {

namespace fs = std::filesystem;
using shell::RecoveryReadStatus;
using Json = nlohmann::ordered_json;

// The event with singers by name instead of id, so that an event and its
// restored copy compare whole.
std::string describe(const core::EventCore& event, const core::SingerStates& states) {
    std::ostringstream out;
    out.precision(17);
    std::map<std::int32_t, std::string> names;
    for (const auto& singer : event.singers()) {
        names[singer.id] = singer.name;
        out << singer.name << ' ' << core::singerStateOf(states, singer.id) << '\n';
    }
    for (const auto& e : event.queue()) out << "queue " << names[e.singerId] << ' ' << e.song.path << '\n';
    if (const auto& e = event.current()) out << "current " << names[e->singerId] << ' ' << e->song.path << '\n';
    for (const auto& h : event.history()) {
        out << "history " << names[h.singerId] << ' ' << h.singer << ' ' << (h.song.id != 0) << ' ' << h.song.path
            << ' ' << h.song.title << ' ' << h.song.artist << ' ' << h.playedAt << '\n';
    }
    out << core::playbackStatusWord(event.playbackStatus()) << ' ' << event.musicVolume();
    return out.str();
}

// Three singers, one away; a queue, a performance playing, history with
// one song that has left the library.
class RecoveryFileTest : public DurableTest {
protected:
    void SetUp() override {
        DurableTest::SetUp();
        one = addMedia("Artist A - Song One.mp3");
        addMedia("Artist A - Song One.cdg");
        two = addMedia("Artist B - Song Two.mp4", 128);
        three = addMedia("sub/Artist C - Song Three.mp4", 256);
        loadLibrary(core);
        const auto id = [&](const std::string& path) { return core.songByPath(path)->id; };
        const std::int32_t ann = core.addSinger("Ann");
        const std::int32_t bob = core.addSinger("Bob \"the voice\" \xC3\xA9");
        ASSERT_GT(core.enqueueForSinger(id(one), ann), 0);
        ASSERT_GT(core.enqueueForSinger(id(two), bob), 0);
        ASSERT_GT(core.enqueueForSinger(id(three), core.addSinger("Cy")), 0);
        ASSERT_GT(core.enqueueForSinger(id(three), ann), 0);
        ASSERT_TRUE(core.advanceForSinger(ann));
        core.setPlaybackStatus(core::PlaybackStatus::Playing);
        ASSERT_TRUE(core.restoreHistoryEntry(id(two), bob, "Bobby", 1763160012.3456789));
        const core::Song gone{0, (media / "gone.mp3").string(), "Gone Song", "Nobody", "mp3", ""};
        ASSERT_TRUE(core.restoreHistoryEntry(gone, 0, "Old Singer", 1763160000.1));
        core.setMusicVolume(0.1 + 0.2);
        states[bob] = "Away";
    }

    bool save(std::int64_t position = 61234) {
        return shell::WriteEventRecovery(shell::RecoveryEventView::of(core), media.string(), position, states);
    }
    RecoveryReadStatus read(const shell::RecoveryReadOptions& options = {}) {
        return shell::readEventRecovery(core::recoveryFilePath(), restored, folder, position, restoredStates,
                                        options);
    }
    Json savedJson() const { return Json::parse(readWhole(core::recoveryFilePath())); }
    void writeJson(const Json& json) const { writeText(core::recoveryFilePath(), json.dump()); }

    core::EventCore core;
    core::SingerStates states;
    std::string one, two, three;

    core::EventCore restored;
    std::string folder = "untouched";
    std::int64_t position = -7;
    core::SingerStates restoredStates;
};

TEST_F(RecoveryFileTest, SavedEventReadsBackWholeAndTheNextSaveKeepsItAsBackup) {
    ASSERT_TRUE(save(1000));
    const std::string first = readWhole(core::recoveryFilePath());
    EXPECT_TRUE(first.starts_with("{\"version\":4,\"mediaFolder\":")) << first;
    const Json json = Json::parse(first);
    std::string keys;
    for (const auto& item : json.items()) keys += item.key() + " ";
    EXPECT_EQ(keys, "version mediaFolder musicVolume playbackPositionMs playbackStatus singers singerStates queue "
                    "current history ");
    EXPECT_EQ(json["queue"][2]["relativePath"], "sub/Artist C - Song Three.mp4");
    EXPECT_EQ(json["queue"][0]["mediaSize"], "128");

    ASSERT_EQ(read(), RecoveryReadStatus::Complete);
    EXPECT_EQ(folder + " " + std::to_string(position), media.string() + " 1000");
    // Stored ids are keys inside the file only; numbers come back bit for
    // bit; a performance that was playing comes back paused.
    core.setPlaybackStatus(core::PlaybackStatus::Paused);
    EXPECT_EQ(describe(restored, restoredStates), describe(core, states));

    core.addSinger("Dee");
    ASSERT_TRUE(save(2000));
    EXPECT_EQ(readWhole(core::recoveryBackupPath()), first);
    EXPECT_EQ(namesIn(dataRoot), (std::vector<std::string>{"event-recovery.json", "event-recovery.json.bak",
                                                            "media-index-cache.tsv"}));
}

TEST_F(RecoveryFileTest, WriterRefusesWhatCouldNotBeReadOrStored) {
    // A folder where the backup belongs stops the save before anything is made.
    fs::create_directories(core::recoveryBackupPath());
    EXPECT_FALSE(save());
    EXPECT_FALSE(fs::exists(core::recoveryFilePath()));
    fs::remove(core::recoveryBackupPath());
    EXPECT_FALSE(shell::WriteEventRecovery(shell::RecoveryEventView::of(core), "relative/folder", 0, states));
    EXPECT_FALSE(fs::exists(core::recoveryFilePath()));

    // The estimate refuses an oversized event before building any text, and
    // does not refuse a large one whose text fits.
    core::EventSnapshot huge = core.snapshot();
    huge.singers.push_back({999, std::string(33554432 / 2 + 1, '/')});
    EXPECT_FALSE(shell::RecoveryJsonSizeEstimate(shell::RecoveryEventView::of(huge), media.string(), states));
    EXPECT_FALSE(shell::WriteEventRecovery(shell::RecoveryEventView::of(huge), media.string(), 0, states));
    core::EventSnapshot large = core.snapshot();
    large.history.assign(650, {100, 0, {0, "/m/a.mp3", std::string(32000, 't'), "", "mp3", ""}, "Ann", 1.0});
    const auto text = shell::serialiseEventRecovery(shell::RecoveryEventView::of(large), media.string(), 0, states);
    ASSERT_TRUE(text.has_value());
    EXPECT_GT(text->size(), 33554432u / 2);

    // Playing with nobody on stage is saved as stopped, so it reads back.
    core.clearCurrent();
    core.setPlaybackStatus(core::PlaybackStatus::Playing);
    ASSERT_TRUE(save());
    EXPECT_EQ(savedJson()["playbackStatus"], "stopped");
    EXPECT_EQ(read(), RecoveryReadStatus::Complete);
}

TEST_F(RecoveryFileTest, ReplacedOrMissingMediaIsDroppedFromTheQueueButNeverFromHistory) {
    ASSERT_TRUE(save());
    // Same name, other size: not the song the singer asked for.
    addMedia("Artist B - Song Two.mp4", 129);
    fs::remove(three);
    ASSERT_EQ(read(), RecoveryReadStatus::Partial);
    EXPECT_TRUE(restored.queue().empty());
    EXPECT_TRUE(restored.current().has_value());
    ASSERT_EQ(restored.history().size(), 2u);
    EXPECT_EQ(restored.history()[1].song.title + " by " + restored.history()[1].song.artist, "Gone Song by Nobody");

    // Without the performance's media the stored playing word falls back
    // to stopped at 0 instead of damaging the file.
    fs::remove(one);
    ASSERT_EQ(read(), RecoveryReadStatus::Partial);
    EXPECT_FALSE(restored.current().has_value());
    EXPECT_EQ(position, 0);
    EXPECT_EQ(restored.playbackStatus(), core::PlaybackStatus::Stopped);
}

TEST_F(RecoveryFileTest, OverrideFolderRebindsAMovedLibrary) {
    ASSERT_TRUE(save());
    const fs::path moved = fs::canonical(temp.path()) / "moved";
    fs::rename(media, moved);
    EXPECT_EQ(read(), RecoveryReadStatus::Partial);
    shell::RecoveryReadOptions options;
    options.overrideMediaFolder = moved.string();
    ASSERT_EQ(read(options), RecoveryReadStatus::Complete);
    EXPECT_EQ(folder, moved.string());
    ASSERT_EQ(restored.queue().size(), 3u);
    EXPECT_EQ(restored.queue()[2].song.path, (moved / "sub/Artist C - Song Three.mp4").string());

    // Without relativePath (version 3) the stored folder is the base: the
    // song's path is made relative to it through weakly-canonical forms.
    Json json = savedJson();
    json["version"] = 3;
    for (auto& entry : json["queue"]) entry.erase("relativePath");
    json["current"].erase("relativePath");
    writeJson(json);
    ASSERT_EQ(read(options), RecoveryReadStatus::Complete);
    EXPECT_EQ(restored.queue()[0].song.path, (moved / "Artist B - Song Two.mp4").string());

    // A relativePath that climbs out is damage, not a lookup; so is an
    // override that is no absolute path.
    json["queue"][0]["relativePath"] = "../outside.mp4";
    writeJson(json);
    EXPECT_EQ(read(options), RecoveryReadStatus::Damaged);
    options.overrideMediaFolder = "relative";
    EXPECT_EQ(read(options), RecoveryReadStatus::Damaged);
}

TEST_F(RecoveryFileTest, EveryRuleOfTheFormatDecidesTheStatus) {
    ASSERT_TRUE(save());
    const Json good = savedJson();
    const Json empty = {{"version", 2}, {"mediaFolder", ""}, {"singers", Json::array()},
                        {"queue", Json::array()}, {"history", Json::array()}};
    const auto damaged = RecoveryReadStatus::Damaged;
    const std::vector<std::tuple<const char*, std::function<void(Json&)>, RecoveryReadStatus>> cases = {
        {"newer with a broken rest", [](Json& j) { j["version"] = 5; j["singers"] = "nonsense"; j.erase("queue"); },
         RecoveryReadStatus::Newer},
        {"fractional version", [](Json& j) { j["version"] = 3.5; }, damaged},
        {"version zero", [](Json& j) { j["version"] = 0; }, damaged},
        {"version as text", [](Json& j) { j["version"] = "4"; }, damaged},
        {"no version", [](Json& j) { j.erase("version"); }, damaged},
        {"volume too loud", [](Json& j) { j["musicVolume"] = 1.5; }, damaged},
        {"negative position", [](Json& j) { j["playbackPositionMs"] = -1; }, damaged},
        {"position past a week", [](Json& j) { j["playbackPositionMs"] = 604800001; }, damaged},
        {"fractional position", [](Json& j) { j["playbackPositionMs"] = 10.5; }, damaged},
        {"unknown status", [](Json& j) { j["playbackStatus"] = "loud"; }, damaged},
        {"two singers with one id", [](Json& j) { j["singers"][1]["id"] = j["singers"][0]["id"]; }, damaged},
        {"blank singer name", [](Json& j) { j["singers"][1]["name"] = "  "; }, damaged},
        {"more states than singers",
         [](Json& j) { for (int i = 0; i < 3; ++i) j["singerStates"].push_back(j["singerStates"][0]); }, damaged},
        {"state of a stranger", [](Json& j) { j["singerStates"][0]["singerId"] = 77; }, damaged},
        {"states as an object", [](Json& j) { j["singerStates"] = Json::object(); }, damaged},
        {"current as text", [](Json& j) { j["current"] = "Ann"; }, damaged},
        {"queue for a stranger", [](Json& j) { j["queue"][0]["singerId"] = 77; }, damaged},
        {"queue without its stamp", [](Json& j) { j["queue"][0].erase("mediaSize"); }, damaged},
        {"relative song path", [](Json& j) { j["queue"][0]["songPath"] = "song.mp3"; }, damaged},
        {"history without playedAt", [](Json& j) { j["history"][0].erase("playedAt"); }, damaged},
        {"history before the epoch", [](Json& j) { j["history"][0]["playedAt"] = -1; }, damaged},
        {"relativePath in version 2", [](Json& j) { j["version"] = 2; }, damaged},
        {"playing without anyone on stage", [](Json& j) { j.erase("current"); }, damaged},
        {"empty event of version 2", [&](Json& j) { j = empty; }, damaged},
        {"empty event of version 4", [&](Json& j) { j = empty; j["version"] = 4; }, RecoveryReadStatus::Complete},
        {"stored ids far apart",
         [](Json& j) { j["singers"][0]["id"] = j["queue"][2]["singerId"] = j["current"]["singerId"] = 1e9; },
         RecoveryReadStatus::Complete},
        {"history of a departed singer", [](Json& j) { j["history"][0]["singerId"] = 424242; },
         RecoveryReadStatus::Complete},
    };
    for (const auto& [name, change, expected] : cases) {
        Json json = good;
        change(json);
        writeJson(json);
        EXPECT_EQ(read(), expected) << name;
    }

    Json quiet = good;
    quiet.erase("musicVolume");
    writeJson(quiet);
    ASSERT_EQ(read(), RecoveryReadStatus::Complete);
    EXPECT_EQ(restored.musicVolume(), 0.85);

    // A version 1 file binds by songPath alone and checks no title.
    writeJson({{"version", 1},
               {"mediaFolder", media.string()},
               {"singers", {{{"id", 5}, {"name", "Eve"}}}},
               {"queue", {{{"singerId", 5}, {"songPath", one}, {"title", "whatever"}}}},
               {"history", Json::array()}});
    ASSERT_EQ(read(), RecoveryReadStatus::Complete);
    EXPECT_EQ(describe(restored, {}), "Eve Ready\nqueue Eve " + one + "\nstopped 0.84999999999999998");
}

// Replaces a random node of the document by a value of another JSON type,
// drops a key, or nests it deeper: the damage a hand edit or a foreign
// writer could do while the text still parses.
void mutateJson(Json& node, std::mt19937& random, int depth = 0) {
    if ((node.is_object() || node.is_array()) && !node.empty() && depth < 6 && random() % 4 != 0) {
        auto it = node.begin();
        std::advance(it, static_cast<long>(random() % node.size()));
        if (node.is_object() && random() % 5 == 0) {
            node.erase(it.key());
        } else {
            mutateJson(*it, random, depth + 1);
        }
        return;
    }
    const Json replacements[] = {nullptr, "text", 3.5, -1, Json::array({node}), Json::object({{"x", node}}),
                                 true,    1e300,  2147483648.0};
    node = replacements[random() % std::size(replacements)];
}

TEST_F(RecoveryFileTest, MutatedFilesNeverCrashTheReaderNorTouchALiveEventOnRefusal) {
    ASSERT_TRUE(save());
    const std::string good = readWhole(core::recoveryFilePath());
    const Json goodJson = Json::parse(good);
    const std::vector<core::Song> songs = core.songs();
    shell::RecoveryReadOptions options;
    options.loadLibrary = [&](const fs::path&) { return std::optional(songs); };
    const auto resetLive = [&] {
        restored = core::EventCore();
        restored.addSinger("Live singer");
        folder = "untouched";
        position = -7;
        restoredStates = {{1, "Away"}};
    };
    // Everything a read may hand out, to prove that a refusal handed out nothing.
    const auto live = [&] {
        return std::tuple(restored.snapshot(), restored.songs(), folder, position, restoredStates);
    };
    resetLive();
    std::mt19937 random(20240611);
    int accepted = 0;
    for (int round = 0; round < 3000; ++round) {
        std::string text = good;
        if (round % 3 == 0) {
            for (int flips = 1 + static_cast<int>(random() % 4); flips > 0; --flips)
                text[random() % text.size()] = static_cast<char>(random() % 256);
        } else if (round % 3 == 1) {
            text.resize(random() % text.size());
        } else {
            Json json = goodJson;
            mutateJson(json, random);
            text = json.dump();
        }
        // A fresh name each round: rewriting one file in place waits on the disk.
        const fs::path file = dataRoot / ("round-" + std::to_string(round) + ".json");
        writeText(file, text);
        const auto before = live();
        const auto status = shell::readEventRecovery(file, restored, folder, position, restoredStates, options);
        fs::remove(file);
        if (status == RecoveryReadStatus::Complete || status == RecoveryReadStatus::Partial) {
            ++accepted;
            EXPECT_LE(restored.singers().size(), 3u);
            EXPECT_TRUE(restored.current() || restored.playbackStatus() == core::PlaybackStatus::Stopped);
            resetLive();
        } else {
            ASSERT_TRUE(live() == before) << "round " << round << " status " << static_cast<int>(status);
        }
    }
    // Some mutations are harmless (a flipped letter in a title); most are not.
    EXPECT_GT(accepted, 0);
    EXPECT_LT(accepted, 3000);
}

TEST_F(RecoveryFileTest, FilesThatAreNotPlainJsonAreMissingOrDamagedAndHandOutNothing) {
    const fs::path path = core::recoveryFilePath();
    EXPECT_EQ(read(), RecoveryReadStatus::Missing);
    fs::create_directories(path);
    EXPECT_EQ(read(), RecoveryReadStatus::Damaged);
    fs::remove(path);
    ASSERT_TRUE(save());
    fs::rename(path, dataRoot / "real.json");
    fs::create_symlink(dataRoot / "real.json", path);
    EXPECT_EQ(read(), RecoveryReadStatus::Damaged);
    fs::remove(path);
    for (const std::string& text : {std::string(100000, '['), std::string(),
                                   std::string("{\"version\": 7, \"next\": [1,2,,]")}) {
        writeText(path, text);
        EXPECT_EQ(read(), RecoveryReadStatus::Damaged) << text.substr(0, 20);
    }
    EXPECT_EQ(folder, "untouched");
    EXPECT_EQ(position, -7);
}

// A child saves an ever newer event as fast as it can; the parent kills it
// with SIGKILL at random moments. After every kill the primary (or, failing
// that, the backup) must read back complete and hold an event no older than
// the one before the last save the child reported as done.
TEST_F(RecoveryFileTest, KilledWhileSavingLeavesAReadableRecentEvent) {
    const auto eventOf = [](std::int64_t generation) {
        core::EventCore event;
        for (int i = 0; i < 20; ++i) event.addSinger("Singer " + std::to_string(i));
        for (std::int64_t i = 0; i < std::min<std::int64_t>(generation, 400); ++i) {
            event.restoreHistoryEntry({0, "/m/" + std::to_string(i) + ".mp3", "Song", "", "mp3", ""}, 1, "", 1.7e9);
        }
        return event;
    };
    std::mt19937 random(99);
    std::int64_t verified = 0;
    int kills = 0;
    int savesSeen = 0;
    const auto started = std::chrono::steady_clock::now();
    while (kills < 300 && std::chrono::steady_clock::now() - started < std::chrono::seconds(9)) {
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
        for (std::int64_t value = 0; ::read(pipeEnds[0], &value, sizeof value) == sizeof value; ++savesSeen) {
            reported = value;
        }
        ::close(pipeEnds[0]);
        ++kills;

        // The position read back is the generation of the event.
        RecoveryReadStatus status = read();
        std::int64_t floor = std::max(reported, verified);
        if (status != RecoveryReadStatus::Complete) {
            status = shell::readEventRecovery(core::recoveryBackupPath(), restored, folder, position, restoredStates);
            floor = std::max<std::int64_t>(reported - 1, verified - 1);
        }
        if (reported == 0 && verified == 0 && status == RecoveryReadStatus::Missing) continue;
        ASSERT_EQ(status, RecoveryReadStatus::Complete) << "kill " << kills;
        ASSERT_GE(position, floor) << "kill " << kills;
        EXPECT_EQ(restored.history().size(), static_cast<std::size_t>(std::min<std::int64_t>(position, 400)));
        verified = position;
    }
    EXPECT_GE(kills, 100);
    // Enough saves completed between kills for the floor to mean something.
    EXPECT_GE(savesSeen, 20);
}

#ifdef TAMO_RECOVERY_TOOL
TEST_F(RecoveryFileTest, ToolReportsWhatTheProgramWouldRestoreAndWritesNothing) {
    const auto tool = [](const std::string& arguments) {
        return runCommand(shellQuote(TAMO_RECOVERY_TOOL) + " " + arguments + " 2>/dev/null");
    };
    const fs::path file = temp / "copy.json";
    ASSERT_TRUE(shell::WriteEventRecovery(shell::RecoveryEventView::of(core), media.string(), 90000, states,
                                          {file, temp / "copy.json.bak"}));
    fs::remove(three);
    const std::string saved = readWhole(file);
    const auto names = namesIn(temp.path());
    const auto dataNames = namesIn(dataRoot);

    const fs::path cache = temp / "no-cache.tsv";
    ToolRun run = tool("read " + shellQuote(file.string()) + " --json --media-cache " + shellQuote(cache.string()));
    ASSERT_EQ(run.status, 0) << run.out;
    EXPECT_EQ(Json::parse(run.out), Json::parse(R"({"status":2,"statusName":"partial","mediaFolder":")" +
                                                media.string() +
                                                R"(","playbackPositionMs":90000,"playbackStatus":"paused",)"
                                                R"("singers":3,"singerStates":1,"queueEntries":1,)"
                                                R"("historyEntries":2,"currentPerformance":true})"));
    run = tool("read " + shellQuote(file.string()));
    EXPECT_NE(run.out.find("status: 2 partial\nmedia folder: " + media.string() + "\n"), std::string::npos) << run.out;
    writeText(temp / "bad.json", "{\"version\":3.5}");
    run = tool("read " + shellQuote((temp / "bad.json").string()) + " --json");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(Json::parse(run.out)["status"], 5);
    fs::remove(temp / "bad.json");
    EXPECT_EQ(tool("read").status, 2);
    EXPECT_EQ(tool("--help").status, 0);
    EXPECT_EQ(readWhole(file), saved);
    EXPECT_EQ(namesIn(temp.path()), names);
    EXPECT_EQ(namesIn(dataRoot), dataNames);
}
#endif

}  // namespace
}  // namespace tamo::test
