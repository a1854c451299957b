#include "durable_fixture.h"
#include "fixed_paths.h"
#include "recovery_reader.h"
#include "recovery_writer.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace tamo::test {
namespace {

namespace fs = std::filesystem;
using shell::RecoveryReadStatus;
using Json = nlohmann::ordered_json;

class RecoveryFileTest : public DurableTest {
protected:
    void SetUp() override {
        DurableTest::SetUp();
        one = addMedia("Artist A - Song One.mp3");
        addMedia("Artist A - Song One.cdg");
        two = addMedia("Artist B - Song Two.mp4", 128);
        three = addMedia("sub/Artist C - Song Three.mp4", 256);
        loadLibrary(core);
        ASSERT_EQ(core.songCount(), 3u);
    }

    std::int32_t songId(const std::string& path) const { return core.songByPath(path)->id; }

    // Three singers, one away; a queue, a performance on stage, history.
    void buildEvent() {
        ann = core.addSinger("Ann");
        bob = core.addSinger("Bob");
        cy = core.addSinger("Cy");
        ASSERT_GT(core.enqueueForSinger(songId(one), ann), 0);
        ASSERT_GT(core.enqueueForSinger(songId(two), bob), 0);
        ASSERT_GT(core.enqueueForSinger(songId(three), cy), 0);
        ASSERT_GT(core.enqueueForSinger(songId(three), ann), 0);
        ASSERT_TRUE(core.advanceForSinger(ann));
        core.setPlaybackStatus(core::PlaybackStatus::Playing);
        ASSERT_TRUE(core.restoreHistoryEntry(songId(two), bob, "Bobby", 1763160012.3456789));
        core::Song gone{0, (media / "gone.mp3").string(), "Gone Song", "Nobody", "mp3", ""};
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
    void writeJson(const Json& json) const {
        std::ofstream(core::recoveryFilePath(), std::ios::binary | std::ios::trunc) << json.dump();
    }

    core::EventCore core;
    core::SingerStates states;
    std::string one, two, three;
    std::int32_t ann = 0, bob = 0, cy = 0;

    core::EventCore restored;
    std::string folder = "untouched";
    std::int64_t position = -7;
    core::SingerStates restoredStates;
};

TEST_F(RecoveryFileTest, SavedEventReadsBackWholeWithPlayingRestoredAsPaused) {
    buildEvent();
    ASSERT_TRUE(save());
    const Json json = savedJson();
    std::vector<std::string> keys;
    for (const auto& item : json.items()) keys.push_back(item.key());
    EXPECT_EQ(keys, (std::vector<std::string>{"version", "mediaFolder", "musicVolume", "playbackPositionMs",
                                              "playbackStatus", "singers", "singerStates", "queue", "current",
                                              "history"}));
    EXPECT_EQ(json["version"], 4);
    EXPECT_EQ(json["queue"][2]["relativePath"], "sub/Artist C - Song Three.mp4");
    EXPECT_EQ(json["queue"][0]["mediaSize"], "128");
    EXPECT_FALSE(json["history"][0].contains("mediaSize"));
    EXPECT_EQ(json["history"][1]["relativePath"], "gone.mp3");

    ASSERT_EQ(read(), RecoveryReadStatus::Complete);
    EXPECT_EQ(folder, media.string());
    EXPECT_EQ(position, 61234);
    ASSERT_EQ(restored.singers().size(), 3u);
    EXPECT_EQ(restored.singers()[1].name, "Bob");
    // Stored ids are keys inside the file only; states follow the new ids.
    EXPECT_EQ(core::singerStateOf(restoredStates, restored.singers()[1].id), "Away");
    EXPECT_EQ(restoredStates.size(), 1u);
    ASSERT_EQ(restored.queue().size(), 3u);
    EXPECT_EQ(restored.queue()[2].song.path, three);
    EXPECT_EQ(restored.queue()[2].singerId, restored.singers()[0].id);
    ASSERT_TRUE(restored.current().has_value());
    EXPECT_EQ(restored.current()->song.path, one);
    EXPECT_EQ(restored.playbackStatus(), core::PlaybackStatus::Paused);
    ASSERT_EQ(restored.history().size(), 2u);
    // Numbers come back bit for bit.
    EXPECT_EQ(restored.history()[0].playedAt, 1763160012.3456789);
    EXPECT_EQ(restored.musicVolume(), 0.1 + 0.2);
    EXPECT_EQ(restored.history()[0].singer, "Bobby");
    EXPECT_EQ(restored.history()[1].song.id, 0);
    EXPECT_EQ(restored.history()[1].song.title, "Gone Song");
}

TEST_F(RecoveryFileTest, SecondSaveKeepsThePreviousOneAsBackup) {
    buildEvent();
    ASSERT_TRUE(save(1000));
    EXPECT_FALSE(fs::exists(core::recoveryBackupPath()));
    const std::string first = readWhole(core::recoveryFilePath());
    core.addSinger("Dee");
    ASSERT_TRUE(save(2000));
    EXPECT_EQ(readWhole(core::recoveryBackupPath()), first);
    EXPECT_NE(readWhole(core::recoveryFilePath()), first);
    for (const auto& entry : fs::directory_iterator(dataRoot)) {
        EXPECT_EQ(entry.path().string().find("tmp."), std::string::npos) << entry.path();
    }
}

TEST_F(RecoveryFileTest, WriterRefusesWhatCouldNotBeReadOrStored) {
    buildEvent();
    // A folder where the backup belongs stops the save before anything is made.
    fs::create_directories(core::recoveryBackupPath());
    EXPECT_FALSE(save());
    EXPECT_FALSE(fs::exists(core::recoveryFilePath()));
    fs::remove(core::recoveryBackupPath());

    EXPECT_FALSE(shell::WriteEventRecovery(shell::RecoveryEventView::of(core), "relative/folder", 0, states));
    EXPECT_FALSE(fs::exists(core::recoveryFilePath()));

    // The estimate refuses an oversized event before building any text.
    core::EventSnapshot huge = core.snapshot();
    huge.singers.push_back({999, std::string(33554432 / 2 + 1, '/')});
    EXPECT_FALSE(shell::RecoveryJsonSizeEstimate(shell::RecoveryEventView::of(huge), media.string(), states));
    EXPECT_FALSE(shell::WriteEventRecovery(shell::RecoveryEventView::of(huge), media.string(), 0, states));
    EXPECT_FALSE(fs::exists(core::recoveryFilePath()));
    EXPECT_TRUE(shell::RecoveryJsonSizeEstimate(shell::RecoveryEventView::of(core), media.string(), states));
    // A large event whose text fits is not refused by the estimate.
    core::EventSnapshot large = core.snapshot();
    for (std::int32_t i = 0; i < 650; ++i) {
        large.history.push_back({100 + i, 0, {0, "/m/" + std::to_string(i), std::string(32000, 't'), "", "mp3", ""},
                                 "Ann", 1.0});
    }
    const auto text = shell::serialiseEventRecovery(shell::RecoveryEventView::of(large), media.string(), 0, states);
    ASSERT_TRUE(text.has_value());
    EXPECT_GT(text->size(), 33554432u / 2);

    // Playing with nobody on stage is saved as stopped, so it reads back.
    core.clearCurrent();
    core.setPlaybackStatus(core::PlaybackStatus::Playing);
    ASSERT_TRUE(save());
    EXPECT_EQ(savedJson()["playbackStatus"], "stopped");
    EXPECT_FALSE(savedJson().contains("current"));
    EXPECT_EQ(read(), RecoveryReadStatus::Complete);
}

TEST_F(RecoveryFileTest, ReplacedOrMissingMediaIsDroppedFromTheQueueButNeverFromHistory) {
    buildEvent();
    ASSERT_TRUE(save());
    // Same name, other size: not the song the singer asked for.
    addMedia("Artist B - Song Two.mp4", 129);
    fs::remove(three);
    ASSERT_EQ(read(), RecoveryReadStatus::Partial);
    ASSERT_EQ(restored.queue().size(), 0u);
    ASSERT_TRUE(restored.current().has_value());
    ASSERT_EQ(restored.history().size(), 2u);
    EXPECT_EQ(restored.history()[0].song.path, two);
    EXPECT_EQ(restored.history()[1].song.title, "Gone Song");
    EXPECT_EQ(restored.history()[1].song.artist, "Nobody");

    // Without the performance's media the stored playing word falls back
    // to stopped at 0 instead of damaging the file.
    fs::remove(one);
    ASSERT_EQ(read(), RecoveryReadStatus::Partial);
    EXPECT_FALSE(restored.current().has_value());
    EXPECT_EQ(position, 0);
    EXPECT_EQ(restored.playbackStatus(), core::PlaybackStatus::Stopped);

    // A folder that is not there at all: nothing binds, history stays.
    fs::remove_all(media);
    ASSERT_EQ(read(), RecoveryReadStatus::Partial);
    EXPECT_EQ(restored.singers().size(), 3u);
    EXPECT_EQ(restored.history().size(), 2u);
    EXPECT_EQ(restored.songCount(), 0u);
}

TEST_F(RecoveryFileTest, OverrideFolderRebindsAMovedLibrary) {
    buildEvent();
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

    // A relativePath that climbs out is damage, not a lookup.
    json["queue"][0]["relativePath"] = "../outside.mp4";
    writeJson(json);
    EXPECT_EQ(read(options), RecoveryReadStatus::Damaged);
    options.overrideMediaFolder = "relative";
    EXPECT_EQ(read(options), RecoveryReadStatus::Damaged);
}

TEST_F(RecoveryFileTest, EveryRuleOfTheFormatDecidesTheStatus) {
    buildEvent();
    ASSERT_TRUE(save());
    const Json good = savedJson();
    struct Case {
        const char* name;
        std::function<void(Json&)> change;
        RecoveryReadStatus expected;
    };
    const std::vector<Case> cases = {
        {"newer with a broken rest", [](Json& j) { j["version"] = 5; j["singers"] = "nonsense"; j.erase("queue"); },
         RecoveryReadStatus::Newer},
        {"fractional version", [](Json& j) { j["version"] = 3.5; }, RecoveryReadStatus::Damaged},
        {"version zero", [](Json& j) { j["version"] = 0; }, RecoveryReadStatus::Damaged},
        {"version as text", [](Json& j) { j["version"] = "4"; }, RecoveryReadStatus::Damaged},
        {"no version", [](Json& j) { j.erase("version"); }, RecoveryReadStatus::Damaged},
        {"volume too loud", [](Json& j) { j["musicVolume"] = 1.5; }, RecoveryReadStatus::Damaged},
        {"negative position", [](Json& j) { j["playbackPositionMs"] = -1; }, RecoveryReadStatus::Damaged},
        {"position past a week", [](Json& j) { j["playbackPositionMs"] = 604800001; }, RecoveryReadStatus::Damaged},
        {"fractional position", [](Json& j) { j["playbackPositionMs"] = 10.5; }, RecoveryReadStatus::Damaged},
        {"unknown status", [](Json& j) { j["playbackStatus"] = "loud"; }, RecoveryReadStatus::Damaged},
        {"two singers with one id", [](Json& j) { j["singers"][1]["id"] = j["singers"][0]["id"]; },
         RecoveryReadStatus::Damaged},
        {"blank singer name", [](Json& j) { j["singers"][1]["name"] = "  "; }, RecoveryReadStatus::Damaged},
        {"more states than singers",
         [](Json& j) {
             for (int i = 0; i < 3; ++i) j["singerStates"].push_back({{"singerId", j["singers"][0]["id"]}, {"state", "Away"}});
         },
         RecoveryReadStatus::Damaged},
        {"state of a stranger", [](Json& j) { j["singerStates"][0]["singerId"] = 77; }, RecoveryReadStatus::Damaged},
        {"states as an object", [](Json& j) { j["singerStates"] = Json::object(); }, RecoveryReadStatus::Damaged},
        {"current as text", [](Json& j) { j["current"] = "Ann"; }, RecoveryReadStatus::Damaged},
        {"queue for a stranger", [](Json& j) { j["queue"][0]["singerId"] = 77; }, RecoveryReadStatus::Damaged},
        {"queue without its stamp", [](Json& j) { j["queue"][0].erase("mediaSize"); }, RecoveryReadStatus::Damaged},
        {"relative song path", [](Json& j) { j["queue"][0]["songPath"] = "song.mp3"; }, RecoveryReadStatus::Damaged},
        {"history without playedAt", [](Json& j) { j["history"][0].erase("playedAt"); }, RecoveryReadStatus::Damaged},
        {"history before the epoch", [](Json& j) { j["history"][0]["playedAt"] = -1; }, RecoveryReadStatus::Damaged},
        {"relativePath in version 2", [](Json& j) { j["version"] = 2; }, RecoveryReadStatus::Damaged},
        {"playing without anyone on stage", [](Json& j) { j.erase("current"); }, RecoveryReadStatus::Damaged},
        {"missing volume", [](Json& j) { j.erase("musicVolume"); }, RecoveryReadStatus::Complete},
        {"stored ids far apart", [](Json& j) {
             j["singers"][0]["id"] = 1000000000;
             j["queue"][2]["singerId"] = 1000000000;
             j["current"]["singerId"] = 1000000000;
         }, RecoveryReadStatus::Complete},
        {"history of a departed singer", [](Json& j) { j["history"][0]["singerId"] = 424242; },
         RecoveryReadStatus::Complete},
    };
    for (const Case& c : cases) {
        Json json = good;
        c.change(json);
        writeJson(json);
        restored = core::EventCore();
        EXPECT_EQ(read(), c.expected) << c.name;
        if (std::string(c.name) == "missing volume") {
            EXPECT_EQ(restored.musicVolume(), 0.85);
        }
    }

    // Text that doesn't parse is damaged, whatever version it starts with.
    std::ofstream(core::recoveryFilePath(), std::ios::trunc) << "{\"version\": 7, \"next\": [1,2,,]";
    EXPECT_EQ(read(), RecoveryReadStatus::Damaged);
}

TEST_F(RecoveryFileTest, OnlyTheCurrentVersionMayStoreAnEmptyEvent) {
    const Json empty = {{"version", 2}, {"mediaFolder", ""}, {"singers", Json::array()},
                        {"queue", Json::array()}, {"history", Json::array()}};
    writeJson(empty);
    EXPECT_EQ(read(), RecoveryReadStatus::Damaged);
    Json current = empty;
    current["version"] = 4;
    writeJson(current);
    EXPECT_EQ(read(), RecoveryReadStatus::Complete);
    EXPECT_EQ(position, 0);
    EXPECT_EQ(folder, "");

    // A version 1 file binds by songPath alone and checks no title.
    const Json old = {{"version", 1},
                      {"mediaFolder", media.string()},
                      {"singers", {{{"id", 5}, {"name", "Eve"}}}},
                      {"queue", {{{"singerId", 5}, {"songPath", one}, {"title", "whatever"}}}},
                      {"history", Json::array()}};
    writeJson(old);
    ASSERT_EQ(read(), RecoveryReadStatus::Complete);
    ASSERT_EQ(restored.queue().size(), 1u);
    EXPECT_EQ(restored.queue()[0].song.path, one);
    EXPECT_EQ(restored.queue()[0].singer, "Eve");
}

TEST_F(RecoveryFileTest, FilesThatAreNotPlainJsonAreMissingOrDamaged) {
    EXPECT_EQ(read(), RecoveryReadStatus::Missing);
    fs::create_directories(core::recoveryFilePath());
    EXPECT_EQ(read(), RecoveryReadStatus::Damaged);
    fs::remove(core::recoveryFilePath());
    buildEvent();
    ASSERT_TRUE(save());
    const fs::path real = dataRoot / "real.json";
    fs::rename(core::recoveryFilePath(), real);
    fs::create_symlink(real, core::recoveryFilePath());
    EXPECT_EQ(read(), RecoveryReadStatus::Damaged);
    fs::remove(core::recoveryFilePath());
    std::ofstream(core::recoveryFilePath()) << std::string(100000, '[');
    EXPECT_EQ(read(), RecoveryReadStatus::Damaged);
    std::ofstream(core::recoveryFilePath(), std::ios::trunc) << "";
    EXPECT_EQ(read(), RecoveryReadStatus::Damaged);
    EXPECT_EQ(folder, "untouched");
    EXPECT_EQ(position, -7);
}

}  // namespace
}  // namespace tamo::test
