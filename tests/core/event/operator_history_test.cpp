#include "event_core.h"
#include "operator_delta.h"
#include "operator_footprint.h"
#include "operator_history.h"

#include <gtest/gtest.h>

#include <random>
#include <stdexcept>
#include <string>

namespace tamo::core {

struct OperatorHistoryTestAccess {
    static void setByteLimit(OperatorHistory& history, std::uint64_t bytes) { history.byteLimit_ = bytes; }
};

namespace {

// What undo promises to put back: the rotation with its song copies.
struct Rotation {
    std::vector<Singer> singers;
    std::vector<QueueEntry> queue;
    std::optional<QueueEntry> current;

    friend bool operator==(const Rotation&, const Rotation&) = default;
};

Rotation rotationOf(const EventCore& core) { return Rotation{core.singers(), core.queue(), core.current()}; }

std::vector<std::int32_t> singerOrder(const EventCore& core) {
    std::vector<std::int32_t> ids;
    for (const Singer& singer : core.singers()) ids.push_back(singer.id);
    return ids;
}

std::int32_t addSong(EventCore& core, const std::string& name) {
    return core.upsertSong(Song{0, "/m/" + name + ".mp3", "Title " + name, "Artist", "mp3", ""});
}

// Runs `action` as one recorded operator action, as the shell does.
template <class Action>
bool wrapped(OperatorHistory& history, EventCore& core, Action action) {
    if (!history.begin(core)) return false;
    if (!action()) {
        history.cancel();
        return false;
    }
    if (!history.commit(core)) {
        history.cancel();
        return false;
    }
    return true;
}

TEST(OperatorHistory, RenameAndSingerMoveRecordOnlyWhatChanged) {
    EventCore core;
    for (int i = 0; i < 40; ++i) addSong(core, std::to_string(i));
    for (int i = 0; i < 3000; ++i) core.addSinger("Singer " + std::to_string(i));
    for (std::int32_t id = 1; id <= 3000; ++id) core.enqueueForSinger(1 + id % 40, id);

    OperatorSnapshot before = core.operatorSnapshot();
    ASSERT_TRUE(core.renameSinger(1500, "Renamed"));
    OperatorStep rename = buildOperatorStep(before, core.operatorSnapshot());
    ASSERT_EQ(rename.singerChanges.size(), 1U);
    EXPECT_EQ(rename.singerChanges[0].before->name, "Singer 1499");
    EXPECT_EQ(rename.singerChanges[0].after->name, "Renamed");
    EXPECT_TRUE(rename.singerLinks.empty());
    EXPECT_TRUE(rename.queueLinks.empty());
    EXPECT_TRUE(rename.queueChanges.empty());
    EXPECT_FALSE(rename.currentChanged);

    before = core.operatorSnapshot();
    ASSERT_TRUE(core.moveSingerBefore(1500, 0));
    const OperatorStep move = buildOperatorStep(before, core.operatorSnapshot());
    EXPECT_TRUE(move.singerChanges.empty());
    ASSERT_EQ(move.singerLinks.size(), 3U);
    EXPECT_EQ(move.singerLinks[0].id, 1499);
    EXPECT_EQ(move.singerLinks[0].before, 1500);
    EXPECT_EQ(move.singerLinks[0].after, 1501);
    EXPECT_TRUE(move.queueLinks.empty());
    EXPECT_LT(operatorStepBytes(move), 1024U);

    // The same through the engine: one small step, and an exact way back.
    OperatorHistory history;
    const Rotation start = rotationOf(core);
    const std::vector<std::int32_t> order = singerOrder(core);
    ASSERT_TRUE(wrapped(history, core, [&] { return core.moveSingerBefore(7, 0); }));
    EXPECT_EQ(core.singers().back().id, 7);
    EXPECT_EQ(history.undoCount(), 1U);
    EXPECT_LT(history.deltaBytes(), 1024U);
    EXPECT_GT(history.residentBytes(), history.deltaBytes() + 3000 * 40);
    ASSERT_TRUE(history.undo(core));
    EXPECT_EQ(singerOrder(core), order);
    EXPECT_EQ(rotationOf(core), start);
}

TEST(OperatorHistory, UndoRedoFollowTheBaselineAndANewCommitEmptiesRedo) {
    EventCore core;
    const std::int32_t song = addSong(core, "a");
    OperatorHistory history;
    std::int32_t ana = 0;
    ASSERT_TRUE(wrapped(history, core, [&] { return (ana = core.addSinger("Ana")) != 0; }));
    const Rotation withAna = rotationOf(core);
    ASSERT_TRUE(wrapped(history, core, [&] { return core.enqueueForSinger(song, ana) != 0; }));
    const Rotation queued = rotationOf(core);

    ASSERT_TRUE(history.undo(core));
    EXPECT_EQ(rotationOf(core), withAna);
    ASSERT_TRUE(history.redo(core));
    EXPECT_EQ(rotationOf(core), queued);
    ASSERT_TRUE(history.undo(core));
    ASSERT_TRUE(history.undo(core));
    EXPECT_TRUE(core.singers().empty());
    EXPECT_FALSE(history.undo(core));
    EXPECT_EQ(history.redoCount(), 2U);

    // The baseline moved with each undo, so a begin here is no outside change.
    ASSERT_TRUE(history.begin(core));
    EXPECT_EQ(history.redoCount(), 2U);
    EXPECT_FALSE(history.undo(core)) << "no undo while a transaction is open";
    EXPECT_FALSE(history.commit(core)) << "nothing changed";
    EXPECT_EQ(history.redoCount(), 2U) << "an empty commit keeps redo";
    ASSERT_TRUE(history.redo(core));
    EXPECT_EQ(rotationOf(core), withAna);

    ASSERT_TRUE(wrapped(history, core, [&] { return core.renameSinger(ana, "Anna"); }));
    EXPECT_EQ(history.redoCount(), 0U);
    EXPECT_FALSE(history.redo(core));
    EXPECT_EQ(history.undoCount(), 2U);
}

TEST(OperatorHistory, AnOutsideChangeEmptiesTheStacksAndIdsNeverFall) {
    EventCore core;
    const std::int32_t song = addSong(core, "a");
    OperatorHistory history;
    std::int32_t ana = 0;
    ASSERT_TRUE(wrapped(history, core, [&] { return (ana = core.addSinger("Ana")) != 0; }));
    ASSERT_TRUE(wrapped(history, core, [&] { return core.enqueueForSinger(song, ana) != 0; }));
    ASSERT_TRUE(wrapped(history, core, [&] { return core.enqueueForSinger(song, ana) != 0; }));
    ASSERT_TRUE(history.undo(core));

    ASSERT_TRUE(core.advance());
    const Rotation advanced = rotationOf(core);
    EXPECT_FALSE(history.undo(core));
    EXPECT_EQ(history.undoCount(), 0U);
    EXPECT_EQ(history.redoCount(), 0U);
    EXPECT_EQ(rotationOf(core), advanced);

    // An undone singer's id is not given out again.
    std::int32_t bo = 0;
    ASSERT_TRUE(wrapped(history, core, [&] { return (bo = core.addSinger("Bo")) != 0; }));
    ASSERT_TRUE(history.undo(core));
    EXPECT_EQ(core.nextSingerId(), bo + 1);
    EXPECT_EQ(core.addSinger("Bo again"), bo + 1);

    // An event replaced from outside with lower counters is raised back at
    // the next begin, which then starts over from the event as it is.
    history.clear();
    EventCore fresh;
    fresh.upsertSong(Song{0, "/m/a.mp3", "Title", "Artist", "mp3", ""});
    ASSERT_TRUE(history.begin(fresh));
    ASSERT_NE(fresh.addSinger("Cy"), 0);
    ASSERT_NE(fresh.addSinger("Di"), 0);
    ASSERT_TRUE(history.commit(fresh));
    EventSnapshot emptied = fresh.snapshot();
    emptied.singers.clear();
    emptied.nextSingerId = 1;
    ASSERT_TRUE(fresh.restoreEvent(emptied));
    ASSERT_TRUE(history.begin(fresh));
    EXPECT_EQ(history.undoCount(), 0U);
    EXPECT_EQ(fresh.nextSingerId(), 3);
    EXPECT_EQ(fresh.addSinger("Ed"), 3);
    EXPECT_TRUE(history.commit(fresh));
}

TEST(OperatorHistory, CurrentPerformanceAndLibraryGateTheUndo) {
    EventCore core;
    const std::int32_t keep = addSong(core, "keep");
    const std::int32_t gone = addSong(core, "gone");
    const std::int32_t ana = core.addSinger("Ana");
    const std::int32_t first = core.enqueueForSinger(keep, ana);
    core.enqueueForSinger(keep, ana);
    OperatorHistory history;

    ASSERT_TRUE(wrapped(history, core, [&] { return core.activateQueuedEntry(first); }));
    const Rotation active = rotationOf(core);
    core.setPlaybackStatus(PlaybackStatus::Playing);
    EXPECT_FALSE(history.undo(core));
    EXPECT_EQ(history.undoCount(), 1U);
    EXPECT_EQ(rotationOf(core), active);
    core.setPlaybackStatus(PlaybackStatus::Stopped);
    ASSERT_TRUE(history.undo(core));
    EXPECT_FALSE(core.current().has_value());
    EXPECT_EQ(core.queue().front().id, first);
    ASSERT_TRUE(history.redo(core));
    EXPECT_EQ(rotationOf(core), active);

    // Paused counts as running too; a step that leaves current alone does not.
    ASSERT_TRUE(wrapped(history, core, [&] { return core.renameSinger(ana, "Anna"); }));
    core.setPlaybackStatus(PlaybackStatus::Paused);
    ASSERT_TRUE(history.undo(core));
    EXPECT_EQ(core.current()->singer, "Ana");
    ASSERT_TRUE(history.redo(core));
    core.setPlaybackStatus(PlaybackStatus::Stopped);

    // A removed entry whose song has since left the library cannot return.
    std::int32_t doomed = 0;
    ASSERT_TRUE(wrapped(history, core, [&] { return (doomed = core.enqueueForSinger(gone, ana)) != 0; }));
    ASSERT_TRUE(wrapped(history, core, [&] { return core.removeQueuedEntry(doomed); }));
    std::vector<Song> remaining;
    for (const Song& song : core.songs()) {
        if (song.id != gone) remaining.push_back(song);
    }
    ASSERT_TRUE(core.replaceLibrary(remaining));
    const Rotation withoutSong = rotationOf(core);
    const std::int32_t nextQueueId = core.nextQueueId();
    EXPECT_FALSE(history.undo(core));
    EXPECT_EQ(rotationOf(core), withoutSong);
    EXPECT_EQ(core.nextQueueId(), nextQueueId);
    EXPECT_EQ(history.undoCount(), 4U);

    // Undo re-reads song fields from the library as it is now.
    history.clear();
    ASSERT_EQ(core.upsertSong(Song{0, "/m/keep.mp3", "New title", "Artist", "mp3", ""}), keep);
    const std::int32_t front = core.queue().front().id;
    ASSERT_EQ(core.queue().front().song.title, "Title keep");
    ASSERT_TRUE(wrapped(history, core, [&] { return core.removeQueuedEntry(front); }));
    ASSERT_TRUE(history.undo(core));
    EXPECT_EQ(core.queue().front().id, front);
    EXPECT_EQ(core.queue().front().song.title, "New title");
}

TEST(OperatorHistory, ApplyingRefusesAnythingThatDoesNotFit) {
    const std::vector<Singer> present{{1, "Ana"}, {2, "Bo"}, {3, "Cy"}};
    std::vector<Singer> renamed = present;
    renamed[1].name = "Bob";
    std::vector<LinkChange> links;
    std::vector<SingerChange> changes;
    buildListDelta(present, renamed, links, changes);
    std::vector<Singer> out;
    ASSERT_TRUE(applyListDelta(renamed, links, changes, StepDirection::Undo, out));
    EXPECT_EQ(out, present);

    std::vector<Singer> oneByteOff = renamed;
    oneByteOff[1].name = "Boc";
    EXPECT_FALSE(applyListDelta(oneByteOff, links, changes, StepDirection::Undo, out));
    EXPECT_FALSE(applyListDelta(renamed, links, changes, StepDirection::Redo, out)) << "redo expects `before`";

    // Reordering: drop Bo, add Di at the head.
    const std::vector<Singer> reordered{{4, "Di"}, {1, "Ana"}, {3, "Cy"}};
    buildListDelta(present, reordered, links, changes);
    ASSERT_TRUE(applyListDelta(present, links, changes, StepDirection::Redo, out));
    EXPECT_EQ(out, reordered);
    ASSERT_TRUE(applyListDelta(reordered, links, changes, StepDirection::Undo, out));
    EXPECT_EQ(out, present);
    EXPECT_FALSE(applyListDelta(present, links, changes, StepDirection::Undo, out));
    const std::vector<Singer> moved{{4, "Di"}, {3, "Cy"}, {1, "Ana"}};
    EXPECT_FALSE(applyListDelta(moved, links, changes, StepDirection::Undo, out)) << "links no longer match";

    // Edits that pass every expectation but break the list are refused: two
    // links into one element, a cycle cut off from the head, a dangling
    // successor and an element that no link reaches.
    std::vector<LinkChange> joined{{1, 2, 3}, {3, 0, 1}};
    EXPECT_FALSE(applyListDelta(present, joined, std::vector<SingerChange>{}, StepDirection::Redo, out));
    std::vector<LinkChange> cycle{{1, 2, 0}, {3, 0, 2}};
    EXPECT_FALSE(applyListDelta(present, cycle, std::vector<SingerChange>{}, StepDirection::Redo, out));
    std::vector<LinkChange> dangling{{3, 0, 9}};
    EXPECT_FALSE(applyListDelta(present, dangling, std::vector<SingerChange>{}, StepDirection::Redo, out));
    std::vector<SingerChange> orphan{{5, std::nullopt, Singer{5, "Ed"}}};
    EXPECT_FALSE(applyListDelta(present, {}, orphan, StepDirection::Redo, out));

    // The slow path insists on unique positive ids.
    const std::vector<QueueRef> twice{{1, 1, 1}, {2, 1, 1}, {1, 1, 1}};
    const std::vector<QueueRef> other{{2, 1, 1}, {1, 1, 1}};
    std::vector<QueueChange> queueChanges;
    EXPECT_THROW(buildListDelta(twice, other, links, queueChanges), std::invalid_argument);
    EXPECT_THROW(buildListDelta(other, std::vector<QueueRef>{{0, 1, 1}}, links, queueChanges),
                 std::invalid_argument);
    const std::vector<QueueRef> three{{1, 1, 1}, {2, 1, 1}, {3, 1, 1}};
    buildListDelta(three, other, links, queueChanges);
    std::vector<QueueRef> queueOut;
    EXPECT_THROW(applyListDelta(twice, links, queueChanges, StepDirection::Undo, queueOut), std::invalid_argument);
}

TEST(OperatorHistory, SnapshotApplyIsAllOrNothing) {
    EventCore core;
    const std::int32_t song = addSong(core, "a");
    const std::int32_t ana = core.addSinger("Ana");
    const std::int32_t bo = core.addSinger("Bo");
    core.enqueueForSinger(song, ana);
    core.enqueueForSinger(song, bo);
    const Rotation start = rotationOf(core);
    const OperatorSnapshot good = core.operatorSnapshot();

    auto refused = [&](auto edit) {
        OperatorSnapshot bad = good;
        edit(bad);
        const bool applied = core.applyOperatorSnapshot(bad);
        return !applied && rotationOf(core) == start && core.nextSingerId() == good.nextSingerId;
    };
    EXPECT_TRUE(refused([](OperatorSnapshot& s) { s.singers[1].id = 1; }));
    EXPECT_TRUE(refused([](OperatorSnapshot& s) { s.singers[1].name = " \t"; }));
    EXPECT_TRUE(refused([](OperatorSnapshot& s) { s.singers[0].id = 0; }));
    EXPECT_TRUE(refused([](OperatorSnapshot& s) { s.nextSingerId = 2; }));
    EXPECT_TRUE(refused([](OperatorSnapshot& s) { s.queue[1].id = s.queue[0].id; }));
    EXPECT_TRUE(refused([](OperatorSnapshot& s) { s.queue[1].singerId = 99; }));
    EXPECT_TRUE(refused([](OperatorSnapshot& s) { s.queue[1].songId = 99; }));
    EXPECT_TRUE(refused([](OperatorSnapshot& s) { s.nextQueueId = s.queue[1].id; }));
    EXPECT_TRUE(refused([](OperatorSnapshot& s) { s.current = s.queue[0]; }));
    EXPECT_TRUE(refused([](OperatorSnapshot& s) {
        s.current = QueueRef{s.nextQueueId, 1, 1};
    })) << "current id must be below the counter";
    EXPECT_TRUE(refused([](OperatorSnapshot& s) { s.singers.resize(kMaxSingers + 1, Singer{1, "X"}); }));

    // Playing needs a current performance in the target.
    core.setPlaybackStatus(PlaybackStatus::Playing);
    EXPECT_TRUE(refused([](OperatorSnapshot&) {}));
    core.setPlaybackStatus(PlaybackStatus::Stopped);

    // Names are trimmed, the queue takes the new name, counters only rise.
    OperatorSnapshot edited = good;
    edited.singers[0].name = "  Anna ";
    edited.queue.pop_back();
    edited.current = QueueRef{good.nextQueueId, bo, song};
    edited.nextQueueId = good.nextQueueId + 5;
    edited.nextSingerId = 1 + bo;
    ASSERT_TRUE(core.applyOperatorSnapshot(edited));
    EXPECT_EQ(core.singers()[0].name, "Anna");
    EXPECT_EQ(core.queue().size(), 1U);
    EXPECT_EQ(core.queue()[0].singer, "Anna");
    EXPECT_EQ(core.current()->singer, "Bo");
    EXPECT_EQ(core.current()->song.path, "/m/a.mp3");
    EXPECT_EQ(core.nextQueueId(), good.nextQueueId + 5);
    edited.nextQueueId = good.nextQueueId + 1;
    ASSERT_TRUE(core.applyOperatorSnapshot(edited));
    EXPECT_EQ(core.nextQueueId(), good.nextQueueId + 5);
}

TEST(OperatorHistory, LimitsDropTheOldestStepsAndKeepTheNewest) {
    EventCore core;
    OperatorHistory history;
    for (int i = 0; i < 513; ++i) {
        ASSERT_TRUE(wrapped(history, core, [&] { return core.addSinger("S" + std::to_string(i)) != 0; }));
    }
    EXPECT_EQ(history.undoCount(), 512U);
    while (history.undo(core)) {
    }
    ASSERT_EQ(core.singers().size(), 1U) << "the first step was dropped";
    EXPECT_EQ(history.redoCount(), 512U);

    // A rename between two short names is estimated at 368 bytes.
    history.clear();
    const std::int32_t ana = core.singers()[0].id;
    OperatorHistoryTestAccess::setByteLimit(history, 2 * 368);
    for (const char* name : {"Bo", "Cy", "Di"}) {
        ASSERT_TRUE(wrapped(history, core, [&] { return core.renameSinger(ana, name); }));
    }
    EXPECT_EQ(history.undoCount(), 2U);
    EXPECT_EQ(history.deltaBytes(), 2U * 368U);

    ASSERT_TRUE(wrapped(history, core, [&] { return core.addSinger(std::string(5000, 'x')) != 0; }));
    EXPECT_EQ(history.undoCount(), 1U);
    EXPECT_GT(history.deltaBytes(), 5000U);
    ASSERT_TRUE(history.undo(core));
    EXPECT_EQ(core.singers().size(), 1U);
    EXPECT_FALSE(history.undo(core));

    // Redo brings back what undo took, whatever the budget.
    ASSERT_TRUE(history.redo(core));
    EXPECT_EQ(core.singers().size(), 2U);
}

// Long random runs of wrapped actions with undo and redo mixed in, against
// a model of the two stacks: every undo must give back exactly the event
// that preceded its action, and every redo the event that followed it.
struct State {
    Rotation rotation;
    std::int32_t nextSingerId = 0;
    std::int32_t nextQueueId = 0;

    friend bool operator==(const State&, const State&) = default;
};

struct Recorded {
    Rotation before;
    Rotation after;
};

TEST(OperatorHistory, RandomActionsUndoToTheirExactStartingPoint) {
    for (std::uint32_t seed = 1; seed <= 8; ++seed) {
        std::mt19937 random(seed);
        auto pick = [&](int below) { return std::uniform_int_distribution<int>(0, below - 1)(random); };
        EventCore core;
        std::vector<std::int32_t> songs;
        for (int i = 0; i < 5; ++i) songs.push_back(addSong(core, "s" + std::to_string(i)));
        auto stateOf = [&] { return State{rotationOf(core), core.nextSingerId(), core.nextQueueId()}; };

        OperatorHistory history;
        std::vector<Recorded> undoModel;
        std::vector<Recorded> redoModel;
        // The state the engine trusts; anything else is an outside change.
        std::optional<State> trusted;

        auto anySinger = [&]() -> std::int32_t {
            if (core.singers().empty() || pick(12) == 0) return pick(3) == 0 ? 0 : 999;
            return core.singers()[static_cast<std::size_t>(pick(static_cast<int>(core.singers().size())))].id;
        };
        auto anyEntry = [&]() -> std::int32_t {
            if (core.queue().empty() || pick(12) == 0) return pick(2) == 0 ? 0 : 99999;
            return core.queue()[static_cast<std::size_t>(pick(static_cast<int>(core.queue().size())))].id;
        };
        auto anySong = [&] { return songs[static_cast<std::size_t>(pick(5))]; };
        auto mutate = [&]() -> bool {
            int kind = pick(10);
            if (core.singers().size() >= 25 && (kind == 0 || kind == 5)) kind = 2;
            switch (kind) {
                case 0: return core.addSinger(pick(4) == 0 ? " " : "S" + std::to_string(pick(50))) != 0;
                case 1: return core.renameSinger(anySinger(), "R" + std::to_string(pick(4)));
                case 2: return core.deleteSinger(anySinger());
                case 3: return core.moveSingerBefore(anySinger(), anySinger());
                case 4: return core.enqueueForSinger(anySong(), anySinger()) != 0;
                case 5: return core.enqueueNewSinger(anySong(), "N") != 0;
                case 6: return core.removeQueuedEntry(anyEntry());
                case 7: return core.moveQueuedEntry(anyEntry(), pick(3) - 1);
                case 8: return core.moveQueuedEntryToTop(anyEntry());
                default: return core.reassignQueuedEntry(anyEntry(), anySinger(), anyEntry());
            }
        };
        // With a step to replay, undo and redo give up their stacks when the
        // event moved behind them.
        auto replay = [&](bool undoing, std::vector<Recorded>& from, std::vector<Recorded>& to) {
            const bool outside = !trusted || !(stateOf() == *trusted);
            const bool done = undoing ? history.undo(core) : history.redo(core);
            if (from.empty()) {
                EXPECT_FALSE(done);
                return;
            }
            if (outside) {
                EXPECT_FALSE(done);
                undoModel.clear();
                redoModel.clear();
                trusted = stateOf();
                return;
            }
            ASSERT_TRUE(done);
            ASSERT_EQ(rotationOf(core), undoing ? from.back().before : from.back().after);
            trusted = stateOf();
            to.push_back(from.back());
            from.pop_back();
        };

        std::int32_t highestSingerId = 0;
        for (int round = 0; round < 1500; ++round) {
            SCOPED_TRACE("seed " + std::to_string(seed) + " round " + std::to_string(round));
            const int choice = pick(20);
            if (choice < 4) {
                replay(true, undoModel, redoModel);
            } else if (choice < 6) {
                replay(false, redoModel, undoModel);
            } else if (choice == 6) {
                // Behind the engine's back: a change of performance.
                if (pick(2) == 0) {
                    core.advance();
                } else {
                    core.clearCurrent();
                }
            } else {
                ASSERT_TRUE(history.begin(core));
                if (!trusted || !(stateOf() == *trusted)) {
                    EXPECT_EQ(history.undoCount() + history.redoCount(), 0U);
                    undoModel.clear();
                    redoModel.clear();
                }
                const State before = stateOf();
                const bool ran = mutate();
                trusted = before;
                if (pick(10) == 0) {
                    history.cancel();
                } else if (!ran) {
                    history.cancel();
                    ASSERT_EQ(stateOf(), before) << "a refusal changes nothing";
                } else if (history.commit(core)) {
                    ASSERT_FALSE(stateOf().rotation == before.rotation);
                    undoModel.push_back(Recorded{before.rotation, rotationOf(core)});
                    redoModel.clear();
                    trusted = stateOf();
                } else {
                    ASSERT_EQ(stateOf().rotation, before.rotation);
                    trusted = stateOf();
                }
            }
            ASSERT_GE(core.nextSingerId(), highestSingerId);
            highestSingerId = core.nextSingerId();
            ASSERT_EQ(history.undoCount(), undoModel.size());
            ASSERT_EQ(history.redoCount(), redoModel.size());
        }
    }
}

}  // namespace
}  // namespace tamo::core
