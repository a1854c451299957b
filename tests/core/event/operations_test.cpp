#include "event_fixture.h"
#include "json_writer.h"
#include "operations.h"
#include "operator_history.h"

#include "temp_dir.h"

#include <gtest/gtest.h>

namespace tamo::core {
namespace {

OperationResponse run(EventCore& core, OperatorHistory* history, std::string name, OperationParameters parameters = {}) {
    return dispatchOperation(core, history, OperationRequest{std::move(name), std::move(parameters)});
}

TEST(Operations, IntegerAndNumberReadersRefuseLooseText) {
    EventCore core;
    test::addSongs(core, 1);
    core.addSinger("A");
    const std::pair<const char*, const char*> refused[] = {
        {"+1", "Invalid integer parameter: songId"},    {" 1", "Invalid integer parameter: songId"},
        {"1 ", "Invalid integer parameter: songId"},    {"0x10", "Invalid integer parameter: songId"},
        {"", "Invalid integer parameter: songId"},      {"-", "Invalid integer parameter: songId"},
        {"2147483648", "Invalid integer parameter: songId"}, {"1.0", "Invalid integer parameter: songId"},
        {"99999999999999999999", "Invalid integer parameter: songId"},
    };
    for (const auto& [text, message] : refused) {
        const auto r = run(core, nullptr, "enqueue_for_singer", {{"singerId", "1"}, {"songId", text}});
        EXPECT_EQ(r.httpStatus, 400) << text;
        EXPECT_EQ(r.body, std::string("{\"status\":\"error\",\"message\":\"") + message + "\"}") << text;
    }
    const auto lowest = run(core, nullptr, "enqueue_for_singer", {{"singerId", "1"}, {"songId", "-2147483648"}});
    EXPECT_EQ(lowest.body, R"({"status":"ok","changed":false,"message":"Song was not queued"})");
    const auto queued = run(core, nullptr, "enqueue_for_singer", {{"singerId", "1"}, {"songId", "1"}});
    EXPECT_EQ(queued.body, R"({"status":"ok","queueId":1,"message":"Song queued"})");

    for (const char* text : {"", "abc", "1e999", "nan", "inf", "1x"}) {
        const auto r = run(core, nullptr, "set_music_volume", {{"value", text}});
        EXPECT_EQ(r.message, "Invalid number parameter: value") << text;
    }
    EXPECT_EQ(run(core, nullptr, "set_music_volume", {{"value", " 0.25"}}).httpStatus, 200);
    EXPECT_EQ(core.musicVolume(), 0.25);

    const auto big = run(core, nullptr, "enqueue", {{"singer", std::string(32769, 'x')}, {"songId", "1"}});
    EXPECT_EQ(big.message, "Parameter is too large: singer");
    EXPECT_EQ(run(core, nullptr, "enqueue", {{"singer", std::string(32768, 'x')}, {"songId", "1"}}).httpStatus, 200);

    // Parameters are read in the table's order: format first.
    const auto addSong = run(core, nullptr, "add_song", {{"path", "/a.mp3"}, {"title", "T"}, {"artist", "A"}});
    EXPECT_EQ(addSong.message, "Missing parameter: format");
    const auto noPath =
        run(core, nullptr, "add_song", {{"path", ""}, {"title", "T"}, {"artist", "A"}, {"format", "mp3"}});
    EXPECT_EQ(noPath.httpStatus, 400);
    EXPECT_EQ(noPath.body, R"({"status":"error","message":"Song was not added"})");
}

TEST(Operations, JsonStringsAreEscapedByteByByte) {
    EXPECT_EQ(jsonString(std::string("\b\t\n\f\r\"\\\x01\x1f\x7f", 10)), R"("\b\t\n\f\r\"\\\u0001\u001f)" "\x7f\"");
    EXPECT_EQ(jsonString("caf\xc3\xa9 / \xff"), "\"caf\xc3\xa9 / \xff\"");
    EXPECT_EQ(jsonString(std::string("a\0b", 3)), R"("a\u0000b")");
    std::string number;
    appendJsonFloat(number, 1763160000.123);
    EXPECT_EQ(number, "1.76316e+09");
}

TEST(Operations, StateListsTheEventInItsFixedLayout) {
    EventCore core;
    core.upsertSong(Song{0, "/m/A \"B\".mp3", "T\n", "Ar", "mp3", ""});
    run(core, nullptr, "enqueue", {{"singer", "Ana"}, {"songId", "1"}});
    run(core, nullptr, "advance");
    run(core, nullptr, "advance");
    run(core, nullptr, "enqueue", {{"singer", "Bo"}, {"songId", "1"}});
    run(core, nullptr, "advance");
    OperatorHistory history;
    const auto state = run(core, &history, "state");
    const std::string song = R"({"id":1,"path":"/m/A \"B\".mp3","title":"T\n","artist":"Ar","format":"mp3","cdgPath":""})";
    const std::string played = std::to_string(core.history()[0].playedAt);
    std::string expectedPlayedAt;
    appendJsonFloat(expectedPlayedAt, core.history()[0].playedAt);
    EXPECT_EQ(state.body,
              R"({"status":"ok","playback":{"status":"stopped","musicVolume":0.85},"library":{"songCount":1},)"
              R"("singers":[{"id":1,"name":"Ana"},{"id":2,"name":"Bo"}],"queue":[],)"
              R"("current":{"id":2,"singerId":2,"singer":"Bo","song":)" +
                  song + R"(},"history":[{"id":1,"singerId":1,"singer":"Ana","playedAt":)" + expectedPlayedAt +
                  R"(,"song":)" + song +
                  R"(}],"truncated":{"singers":false,"queue":false,"history":false},)"
                  R"("operatorHistory":{"undoCount":0,"redoCount":0,"transactionOpen":false,"deltaBytes":0,"residentBytes":0}})");
    EXPECT_EQ(state.message, "State captured");
    EXPECT_EQ(state.fields.at("singerCount"), "2");
    EXPECT_EQ(state.fields.at("playbackStatus"), "stopped");
    EXPECT_EQ(state.fields.at("undoCount"), "0");
    EXPECT_FALSE(run(core, nullptr, "state").fields.contains("undoCount"));

    for (int i = 0; i < 1001; ++i) core.enqueueForSinger(1, 1);
    const auto truncated = run(core, nullptr, "state");
    EXPECT_NE(truncated.body.find(R"("truncated":{"singers":false,"queue":true,"history":false}})"),
              std::string::npos);
    EXPECT_NE(truncated.body.find(R"("id":1002,)"), std::string::npos);
    EXPECT_EQ(truncated.body.find(R"("id":1003,)"), std::string::npos);
}

TEST(Operations, NamesAndPlaybackRows) {
    EventCore core;
    const auto names = operationNames();
    EXPECT_EQ(names.size(), 61U);
    const auto listed = run(core, nullptr, "operations");
    EXPECT_EQ(listed.body.rfind(R"({"status":"ok","operations":["state","operations","add_song",)", 0), 0U);
    EXPECT_EQ(listed.message, "Operations listed");
    EXPECT_EQ(listed.body.find("Operations listed"), std::string::npos);
    int unserved = 0;
    OperatorHistory history;
    for (std::string_view name : names) {
        if (run(core, &history, std::string(name)).httpStatus == 404) ++unserved;
    }
    EXPECT_EQ(unserved, 25);
    const auto filler = run(core, nullptr, "filler_state");
    EXPECT_EQ(filler.body, R"({"status":"error","message":"Unknown operation: filler_state"})");
    EXPECT_EQ(run(core, nullptr, "operator_history_undo").httpStatus, 404);
    EXPECT_EQ(run(core, nullptr, "State").httpStatus, 404);

    EXPECT_EQ(run(core, nullptr, "play").body, R"({"status":"ok","changed":false,"message":"Playback started"})");
    EXPECT_EQ(run(core, nullptr, "pause").body, R"({"status":"ok","changed":true,"message":"Playback paused"})");
    EXPECT_EQ(core.playbackStatus(), PlaybackStatus::Stopped);
    test::addSongs(core, 1);
    run(core, nullptr, "enqueue", {{"singer", "A"}, {"songId", "1"}});
    run(core, nullptr, "advance");
    run(core, nullptr, "play");
    EXPECT_EQ(core.playbackStatus(), PlaybackStatus::Playing);
    run(core, nullptr, "pause");
    EXPECT_EQ(core.playbackStatus(), PlaybackStatus::Paused);
    EXPECT_EQ(run(core, nullptr, "restore_current", {{"singerId", "9"}, {"songId", "1"}}).body,
              R"({"status":"ok","changed":false,"message":"Current restored"})");
    EXPECT_EQ(run(core, nullptr, "clear_current").body, R"({"status":"ok","changed":true,"message":"Current cleared"})");
}

TEST(Operations, RefusedRequestsLeaveTheEventAlone) {
    EventCore core;
    test::addSongs(core, 2);
    run(core, nullptr, "enqueue", {{"singer", "A"}, {"songId", "1"}});
    const EventSnapshot before = core.snapshot();
    const OperationRequest refused[] = {
        {"delete_singer", {{"singerId", "x"}}},
        {"move_singer_before", {{"singerId", "1"}, {"beforeSingerId", "7"}}},
        {"move_queued_entry", {{"queueEntryId", "1"}, {"direction", "0"}}},
        {"move_queued_entry_to_singer_before", {{"queueEntryId", "1"}, {"singerId", "1"}, {"beforeQueueEntryId", "-"}}},
        {"restore_history_entry", {{"playedAt", "-1"}, {"singer", "A"}, {"singerId", "1"}, {"songId", "1"}}},
        {"update_singer", {{"name", " "}, {"singerId", "1"}}},
        {"enqueue", {{"singer", "B"}, {"songId", "3"}}},
        {"add_singer", {}},
    };
    for (const auto& request : refused) {
        const auto response = dispatchOperation(core, nullptr, request);
        EXPECT_TRUE(response.httpStatus == 400 || response.fields.at("changed") == "false") << request.name;
        EXPECT_EQ(core.snapshot(), before) << request.name;
    }
}

TEST(Operations, WrappedOperationsRecordUndoSteps) {
    EventCore core;
    test::addSongs(core, 1);
    OperatorHistory history;
    EXPECT_EQ(run(core, &history, "add_singer", {{"name", "Ana"}}).body,
              R"({"status":"ok","singerId":1,"message":"Singer added"})");
    EXPECT_EQ(run(core, &history, "move_singer_before", {{"singerId", "1"}, {"beforeSingerId", "1"}}).body,
              R"({"status":"ok","changed":false,"message":"Singer moved"})");
    EXPECT_EQ(history.undoCount(), 1U);
    EXPECT_EQ(run(core, &history, "operator_history_undo").body,
              R"({"status":"ok","changed":true,"message":"Undo applied"})");
    EXPECT_TRUE(core.singers().empty());
    EXPECT_EQ(run(core, &history, "operator_history_redo").fields.at("changed"), "true");
    EXPECT_EQ(core.singers().size(), 1U);

    EXPECT_EQ(run(core, &history, "operator_history_commit").fields.at("changed"), "false");
    EXPECT_EQ(run(core, &history, "operator_history_begin").fields.at("changed"), "true");
    // An open transaction refuses every wrapped operation.
    EXPECT_EQ(run(core, &history, "add_singer", {{"name", "Bo"}}).body,
              R"({"status":"ok","changed":false,"message":"Singer was not added"})");
    EXPECT_EQ(core.singers().size(), 1U);
    EXPECT_EQ(run(core, &history, "operator_history_cancel").body,
              R"({"status":"ok","changed":true,"message":"Operator transaction cancelled"})");
    EXPECT_EQ(run(core, &history, "reset_event").body, R"({"status":"ok","changed":true,"message":"Event reset"})");
    EXPECT_EQ(history.undoCount(), 0U);
    EXPECT_EQ(run(core, &history, "operator_history_clear").fields.at("changed"), "true");
}

TEST(Operations, LibraryRowsScanReplaceAndSearch) {
    test::TempDir media;
    media.write("Queen - Bohemian Rhapsody.mp3");
    media.write("Queen - Bohemian Rhapsody.cdg");
    media.write("more/ABBA - Waterloo.mp4");
    media.write("notes.txt");
    test::TempDir empty;
    EventCore core;
    const std::string folder = media.path().string();

    EXPECT_EQ(run(core, nullptr, "scan_folder", {{"folderPath", folder}}).body,
              R"({"status":"ok","indexed":2,"message":"Folder scanned"})");
    const std::vector<Song> first = core.songs();
    EXPECT_EQ(run(core, nullptr, "scan_folder", {{"folderPath", folder}}).fields.at("indexed"), "2");
    EXPECT_EQ(core.songs(), first);
    EXPECT_EQ(run(core, nullptr, "scan_folder", {{"folderPath", empty.path().string()}}).fields.at("indexed"), "0");
    const auto missing = run(core, nullptr, "scan_folder", {{"folderPath", (media / "nope").string()}});
    EXPECT_EQ(missing.httpStatus, 400);
    EXPECT_EQ(missing.message, "Could not resolve media folder");

    const std::string queenPath = std::filesystem::canonical(media / "Queen - Bohemian Rhapsody.mp3").string();
    const std::string abbaPath = std::filesystem::canonical(media / "more/ABBA - Waterloo.mp4").string();
    const Song* queen = core.songByPath(queenPath);
    ASSERT_NE(queen, nullptr);
    EXPECT_EQ(queen->artist, "Queen");
    EXPECT_NE(queen->cdgPath, "");

    auto search = run(core, nullptr, "search", {{"query", " MP3 "}});
    EXPECT_EQ(search.fields.at("count"), "1");
    std::string expected = R"({"status":"ok","count":1,"results":[)";
    appendJsonSong(expected, *queen);
    EXPECT_EQ(search.body, expected + "]}");
    EXPECT_EQ(run(core, nullptr, "search", {{"query", ""}, {"limit", "0"}}).fields.at("count"), "1");
    EXPECT_EQ(run(core, nullptr, "search", {{"query", ""}, {"limit", "1000"}}).fields.at("count"), "2");
    EXPECT_EQ(run(core, nullptr, "search", {{"query", ""}, {"limit", "x"}}).message,
              "Invalid integer parameter: limit");
    EXPECT_EQ(run(core, nullptr, "search", {}).message, "Missing parameter: query");

    // Replacing the library drops the queue entry whose file is gone and
    // keeps the identity of the file that stays.
    const Song abba = *core.songByPath(abbaPath);
    run(core, nullptr, "enqueue", {{"singer", "Ana"}, {"songId", std::to_string(queen->id)}});
    std::filesystem::remove(media / "Queen - Bohemian Rhapsody.mp3");
    EXPECT_EQ(run(core, nullptr, "replace_library_from_folder", {{"folderPath", folder}}).body,
              R"({"status":"ok","indexed":1,"message":"Library replaced"})");
    EXPECT_EQ(core.songs(), std::vector<Song>{abba});
    EXPECT_TRUE(core.queue().empty());
    EXPECT_EQ(core.singers().size(), 1U);
}

}  // namespace
}  // namespace tamo::core
