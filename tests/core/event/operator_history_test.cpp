#include "event_core.h"
#include "operator_delta.h"
#include "operator_footprint.h"
#include "operator_history.h"

#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>

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

std::int32_t addSong(EventCore& core, const std::string& name) {
    return core.upsertSong(Song{0, "/m/" + name + ".mp3", "Title " + name, "Artist", "mp3", ""});
}

// Runs `action` as one recorded operator action, as the shell does.
bool wrapped(OperatorHistory& history, EventCore& core, const std::function<bool()>& action) {
    if (!history.begin(core)) return false;
    if (action() && history.commit(core)) return true;
    history.cancel();
    return false;
}

TEST(OperatorHistory, RenameAndSingerMoveRecordOnlyWhatChanged) {
    EventCore core;
    for (int i = 0; i < 40; ++i) addSong(core, std::to_string(i));
    for (int i = 0; i < 3000; ++i) core.addSinger("Singer " + std::to_string(i));
    for (std::int32_t id = 1; id <= 3000; ++id) core.enqueueForSinger(1 + id % 40, id);

    OperatorSnapshot before = core.operatorSnapshot();
    ASSERT_TRUE(core.renameSinger(1500, "Renamed"));
    const OperatorStep rename = buildOperatorStep(before, core.operatorSnapshot());
    ASSERT_EQ(rename.singerChanges.size(), 1U);
    EXPECT_EQ(rename.singerChanges[0].after->name, "Renamed");
    EXPECT_TRUE(rename.singerLinks.empty() && rename.queueLinks.empty() && rename.queueChanges.empty());

    // Moving one singer to the end: the head-or-neighbour links only.
    before = core.operatorSnapshot();
    ASSERT_TRUE(core.moveSingerBefore(1500, 0));
    const OperatorStep move = buildOperatorStep(before, core.operatorSnapshot());
    EXPECT_TRUE(move.singerChanges.empty() && move.queueLinks.empty());
    ASSERT_EQ(move.singerLinks.size(), 3U);
    EXPECT_EQ(move.singerLinks[0].id, 1499);
    EXPECT_EQ(move.singerLinks[0].before, 1500);
    EXPECT_EQ(move.singerLinks[0].after, 1501);

    // The same through the engine: one small step, and an exact way back.
    OperatorHistory history;
    const Rotation start = rotationOf(core);
    ASSERT_TRUE(wrapped(history, core, [&] { return core.moveSingerBefore(7, 0); }));
    EXPECT_EQ(core.singers().back().id, 7);
    EXPECT_LT(history.deltaBytes(), 1024U);
    // Resident adds the trusted snapshot: 72, and per singer and entry 40 +
    // 12 and a short name's 16.
    EXPECT_EQ(history.residentBytes(), history.deltaBytes() + 72 + 3000 * (40 + 12 + 16));
    ASSERT_TRUE(history.undo(core));
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
    // Both stacks count: adding Ana is estimated at 136 + (48 + 2 * 20) +
    // (104 + 16) + 48 bytes, queueing her song at 136 + 48 + (48 + 2 * 20) + 36.
    EXPECT_EQ(history.deltaBytes(), 392U + 308U);
    ASSERT_TRUE(history.redo(core));
    EXPECT_EQ(rotationOf(core), queued);
    ASSERT_TRUE(history.begin(core));
    EXPECT_FALSE(history.undo(core)) << "no undo while a transaction is open";
    history.cancel();
    ASSERT_TRUE(history.undo(core) && history.undo(core));
    EXPECT_TRUE(core.singers().empty());
    EXPECT_FALSE(history.undo(core));

    // The baseline moved with each undo, so a begin here is no outside change.
    ASSERT_TRUE(history.begin(core));
    EXPECT_FALSE(history.commit(core)) << "nothing changed";
    EXPECT_EQ(history.redoCount(), 2U) << "an empty commit keeps redo";
    ASSERT_TRUE(history.redo(core));
    EXPECT_EQ(rotationOf(core), withAna);

    ASSERT_TRUE(wrapped(history, core, [&] { return core.renameSinger(ana, "Anna"); }));
    EXPECT_EQ(history.redoCount(), 0U);
    EXPECT_EQ(history.undoCount(), 2U);
}

TEST(OperatorHistory, AnOutsideChangeEmptiesTheStacksAndIdsNeverFall) {
    EventCore core;
    const std::int32_t song = addSong(core, "a");
    OperatorHistory history;
    const std::int32_t ana = core.addSinger("Ana");
    for (int i = 0; i < 2; ++i) ASSERT_TRUE(wrapped(history, core, [&] { return core.enqueueForSinger(song, ana) != 0; }));
    ASSERT_TRUE(history.undo(core));

    ASSERT_TRUE(core.advance());
    const Rotation advanced = rotationOf(core);
    EXPECT_FALSE(history.undo(core));
    EXPECT_EQ(history.undoCount() + history.redoCount(), 0U);
    EXPECT_EQ(rotationOf(core), advanced);

    // An undone singer's id is not given out again.
    std::int32_t bo = 0;
    ASSERT_TRUE(wrapped(history, core, [&] { return (bo = core.addSinger("Bo")) != 0; }));
    ASSERT_TRUE(history.undo(core));
    EXPECT_EQ(core.addSinger("Bo again"), bo + 1);

    // An event replaced from outside with lower counters is raised back at
    // the next begin, which then starts over from the event as it is.
    history.clear();
    EventCore fresh;
    ASSERT_TRUE(wrapped(history, fresh, [&] { return fresh.addSinger("Cy") != 0 && fresh.addSinger("Di") != 0; }));
    EventSnapshot emptied = fresh.snapshot();
    emptied.singers.clear();
    emptied.nextSingerId = 1;
    ASSERT_TRUE(fresh.restoreEvent(emptied));
    ASSERT_TRUE(history.begin(fresh));
    EXPECT_EQ(history.undoCount(), 0U);
    EXPECT_EQ(fresh.addSinger("Ed"), 3);
    EXPECT_TRUE(history.commit(fresh));
    // The same inside a transaction is raised back at its commit.
    ASSERT_TRUE(history.begin(fresh));
    emptied.nextSingerId = 1;
    ASSERT_TRUE(fresh.restoreEvent(emptied));
    EXPECT_TRUE(history.commit(fresh));
    EXPECT_EQ(fresh.nextSingerId(), 4);
}

TEST(OperatorHistory, CurrentPerformanceAndLibraryGateTheUndo) {
    EventCore core;
    const std::int32_t keep = addSong(core, "keep");
    const std::int32_t gone = addSong(core, "gone");
    const std::int32_t ana = core.addSinger("Ana");
    const std::int32_t first = core.enqueueForSinger(keep, ana);
    const std::int32_t second = core.enqueueForSinger(keep, ana);
    ASSERT_TRUE(core.activateQueuedEntry(first));
    OperatorHistory history;

    // Swapping the performance on stage waits until the player stops.
    ASSERT_TRUE(wrapped(history, core, [&] { return core.activateQueuedEntry(second); }));
    const Rotation swapped = rotationOf(core);
    for (const PlaybackStatus running : {PlaybackStatus::Playing, PlaybackStatus::Paused}) {
        core.setPlaybackStatus(running);
        EXPECT_FALSE(history.undo(core));
    }
    EXPECT_EQ(history.undoCount(), 1U);
    EXPECT_EQ(rotationOf(core), swapped);
    core.setPlaybackStatus(PlaybackStatus::Stopped);
    ASSERT_TRUE(history.undo(core));
    EXPECT_EQ(core.current()->id, first);
    ASSERT_TRUE(history.redo(core));
    EXPECT_EQ(rotationOf(core), swapped);

    // A step that leaves current alone may be undone while the song runs.
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
    ASSERT_TRUE(core.replaceLibrary({*core.songById(keep)}));
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
    using Changes = std::vector<SingerChange>;
    const std::vector<Singer> present{{1, "Ana"}, {2, "Bo"}, {3, "Cy"}};
    std::vector<Singer> renamed = present;
    renamed[1].name = "Bob";
    std::vector<LinkChange> links;
    Changes changes;
    std::vector<Singer> out;
    buildListDelta(present, renamed, links, changes);
    ASSERT_TRUE(applyListDelta(renamed, links, changes, StepDirection::Undo, out));
    EXPECT_EQ(out, present);
    std::vector<Singer> oneByteOff = renamed;
    oneByteOff[1].name = "Boc";
    EXPECT_FALSE(applyListDelta(oneByteOff, links, changes, StepDirection::Undo, out));
    EXPECT_FALSE(applyListDelta(renamed, links, changes, StepDirection::Redo, out)) << "redo expects `before`";

    // Reordering: drop Bo, add Di at the head; only the list it ends in fits.
    const std::vector<Singer> reordered{{4, "Di"}, {1, "Ana"}, {3, "Cy"}};
    buildListDelta(present, reordered, links, changes);
    ASSERT_TRUE(applyListDelta(present, links, changes, StepDirection::Redo, out));
    EXPECT_EQ(out, reordered);
    ASSERT_TRUE(applyListDelta(reordered, links, changes, StepDirection::Undo, out));
    EXPECT_EQ(out, present);
    EXPECT_FALSE(applyListDelta(present, links, changes, StepDirection::Undo, out));
    const std::vector<Singer> moved{{4, "Di"}, {3, "Cy"}, {1, "Ana"}};
    EXPECT_FALSE(applyListDelta(moved, links, changes, StepDirection::Undo, out)) << "links no longer match";
    // Undoing a swap on the list it started from would give that list again,
    // but the links expect the swapped order.
    buildListDelta(present, {{1, "Ana"}, {3, "Cy"}, {2, "Bo"}}, links, changes);
    EXPECT_FALSE(applyListDelta(present, links, changes, StepDirection::Undo, out));

    // Edits that pass every expectation but do not leave one list: two links
    // into one element, a cycle cut off from the head, a dangling successor,
    // an element that no link reaches.
    const struct {
        std::vector<LinkChange> links;
        Changes changes;
    } broken[] = {{{{1, 2, 3}, {3, 0, 1}}, {}},
                  {{{1, 2, 0}, {3, 0, 2}}, {}},
                  {{{3, 0, 9}}, {}},
                  {{}, {{5, std::nullopt, Singer{5, "Ed"}}}}};
    for (const auto& step : broken) EXPECT_FALSE(applyListDelta(present, step.links, step.changes, StepDirection::Redo, out));

    // Outside the fast path ids must be positive and unique.
    const std::vector<QueueRef> twice{{1, 1, 1}, {2, 1, 1}, {1, 1, 1}};
    const std::vector<QueueRef> other{{2, 1, 1}, {1, 1, 1}};
    std::vector<QueueChange> queueChanges;
    EXPECT_THROW(buildListDelta(twice, other, links, queueChanges), std::invalid_argument);
    EXPECT_THROW(buildListDelta(other, {{0, 1, 1}}, links, queueChanges), std::invalid_argument);
    EXPECT_THROW(buildListDelta({{0, 1, 1}}, other, links, queueChanges), std::invalid_argument);
    buildListDelta({{1, 1, 1}, {2, 1, 1}, {3, 1, 1}}, other, links, queueChanges);
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

    const std::function<void(OperatorSnapshot&)> flaws[] = {
        [](OperatorSnapshot& s) { s.singers[1].id = 1; },
        [](OperatorSnapshot& s) { s.singers[1].name = " \t"; },
        [](OperatorSnapshot& s) { s.singers[0].id = 0; },
        [](OperatorSnapshot& s) { s.nextSingerId = 2; },
        [](OperatorSnapshot& s) { s.queue[1].id = s.queue[0].id; },
        [](OperatorSnapshot& s) { s.queue[1].singerId = 99; },
        [](OperatorSnapshot& s) { s.queue[1].songId = 99; },
        [](OperatorSnapshot& s) { s.nextQueueId = s.queue[1].id; },
        [](OperatorSnapshot& s) { s.current = s.queue[0]; },
        [](OperatorSnapshot& s) { s.current = QueueRef{s.nextQueueId, 1, 1}; },
        [](OperatorSnapshot& s) {
            while (s.singers.size() <= kMaxSingers) s.singers.push_back({s.nextSingerId++, "X"});
        },
        [](OperatorSnapshot& s) {
            while (s.queue.size() <= kMaxQueueEntries) s.queue.push_back({s.nextQueueId++, 1, 1});
        },
    };
    for (std::size_t i = 0; i < std::size(flaws); ++i) {
        OperatorSnapshot bad = good;
        flaws[i](bad);
        EXPECT_FALSE(core.applyOperatorSnapshot(bad)) << "flaw " << i;
    }
    // Playing needs a current performance in the target.
    core.setPlaybackStatus(PlaybackStatus::Playing);
    EXPECT_FALSE(core.applyOperatorSnapshot(good));
    core.setPlaybackStatus(PlaybackStatus::Stopped);
    EXPECT_EQ(rotationOf(core), start);
    EXPECT_EQ(core.nextSingerId(), good.nextSingerId);

    // Names are trimmed, the queue takes the new name, counters only rise.
    OperatorSnapshot edited = good;
    edited.singers[0].name = "  Anna ";
    edited.queue.pop_back();
    edited.current = QueueRef{good.nextQueueId, bo, song};
    edited.nextSingerId = good.nextSingerId + 5;
    edited.nextQueueId = good.nextQueueId + 5;
    ASSERT_TRUE(core.applyOperatorSnapshot(edited));
    EXPECT_EQ(core.queue()[0].singer, "Anna");
    EXPECT_EQ(core.current()->singer, "Bo");
    EXPECT_EQ(core.current()->song.path, "/m/a.mp3");
    edited.nextSingerId = good.nextSingerId + 1;
    edited.nextQueueId = good.nextQueueId + 1;
    ASSERT_TRUE(core.applyOperatorSnapshot(edited));
    EXPECT_EQ(core.nextSingerId(), good.nextSingerId + 5);
    EXPECT_EQ(core.nextQueueId(), good.nextQueueId + 5);
}

TEST(OperatorHistory, LimitsDropTheOldestStepsAndKeepTheNewest) {
    EventCore core;
    OperatorHistory history;
    for (int i = 0; i < 513; ++i)
        ASSERT_TRUE(wrapped(history, core, [&] { return core.addSinger("S" + std::to_string(i)) != 0; }));
    EXPECT_EQ(history.undoCount(), 512U);
    while (history.undo(core)) {
    }
    ASSERT_EQ(core.singers().size(), 1U) << "the first step was dropped";

    // A rename between two short names is estimated at 368 bytes: 136 for
    // the step, 48 for each link array, 104 for the change and 16 per name.
    history.clear();
    const std::int32_t ana = core.singers()[0].id;
    OperatorHistoryTestAccess::setByteLimit(history, 2 * 368);
    for (const char* name : {"Bo", "Cy", "Di"}) ASSERT_TRUE(wrapped(history, core, [&] { return core.renameSinger(ana, name); }));
    EXPECT_EQ(history.undoCount(), 2U);
    EXPECT_EQ(history.deltaBytes(), 2U * 368U);

    // A step over the budget on its own stays, alone.
    ASSERT_TRUE(wrapped(history, core, [&] { return core.addSinger(std::string(5000, 'x')) != 0; }));
    EXPECT_EQ(history.undoCount(), 1U);
    EXPECT_GT(history.deltaBytes(), 5000U);
    ASSERT_TRUE(history.undo(core));
    EXPECT_EQ(core.singers().size(), 1U);
    ASSERT_TRUE(history.redo(core));
    EXPECT_EQ(core.singers().size(), 2U);
}

// Long random runs of wrapped actions with undo and redo mixed in, against
// a model of the two stacks: every undo must give back exactly the event
// that preceded its action, and every redo the event that followed it.
TEST(OperatorHistory, RandomActionsUndoToTheirExactStartingPoint) {
    for (std::uint32_t seed = 1; seed <= 8; ++seed) {
        std::mt19937 random(seed);
        auto pick = [&](int below) { return std::uniform_int_distribution<int>(0, below - 1)(random); };
        EventCore core;
        for (int i = 0; i < 5; ++i) addSong(core, "s" + std::to_string(i));
        auto stateOf = [&] { return std::tuple(rotationOf(core), core.nextSingerId(), core.nextQueueId()); };
        OperatorHistory history;
        // Before and after of each step on either stack.
        std::vector<std::pair<Rotation, Rotation>> undoModel;
        std::vector<std::pair<Rotation, Rotation>> redoModel;
        // The state the engine trusts; anything else is an outside change.
        std::optional<decltype(stateOf())> trusted;
        auto outside = [&] { return !trusted || !(stateOf() == *trusted); };
        auto forget = [&] {
            undoModel.clear();
            redoModel.clear();
        };

        // A listed id now and then a stray one, which the core must refuse.
        auto any = [&](const auto& list, std::int32_t stray) -> std::int32_t {
            if (list.empty() || pick(12) == 0) return pick(3) == 0 ? 0 : stray;
            return list[static_cast<std::size_t>(pick(static_cast<int>(list.size())))].id;
        };
        auto singer = [&] { return any(core.singers(), 999); };
        auto entry = [&] { return any(core.queue(), 99999); };
        auto song = [&] { return 1 + pick(5); };
        auto mutate = [&]() -> bool {
            const int kind = pick(10);
            if (core.singers().size() >= 25 && (kind == 0 || kind == 5)) return core.deleteSinger(singer());
            switch (kind) {
                case 0: return core.addSinger(pick(4) == 0 ? " " : "S" + std::to_string(pick(50))) != 0;
                case 1: return core.renameSinger(singer(), "R" + std::to_string(pick(4)));
                case 2: return core.deleteSinger(singer());
                case 3: return core.moveSingerBefore(singer(), singer());
                case 4: return core.enqueueForSinger(song(), singer()) != 0;
                case 5: return core.enqueueNewSinger(song(), "N") != 0;
                case 6: return core.removeQueuedEntry(entry());
                case 7: return core.moveQueuedEntry(entry(), pick(3) - 1);
                case 8: return core.moveQueuedEntryToTop(entry());
                default: return core.reassignQueuedEntry(entry(), singer(), entry());
            }
        };
        // With a step to replay, undo and redo give up their stacks when the
        // event moved behind them.
        auto replay = [&](bool undoing, auto& from, auto& to) {
            const bool wasOutside = outside();
            const bool done = undoing ? history.undo(core) : history.redo(core);
            if (from.empty()) {
                EXPECT_FALSE(done);
                return;
            }
            if (wasOutside) {
                EXPECT_FALSE(done);
                forget();
            } else {
                ASSERT_TRUE(done);
                ASSERT_EQ(rotationOf(core), undoing ? from.back().first : from.back().second);
                to.push_back(from.back());
                from.pop_back();
            }
            trusted = stateOf();
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
                if (pick(2) == 0) core.advance();
                else core.clearCurrent();
            } else {
                const bool wasOutside = outside();
                ASSERT_TRUE(history.begin(core));
                if (wasOutside) {
                    EXPECT_EQ(history.undoCount() + history.redoCount(), 0U);
                    forget();
                }
                const auto before = stateOf();
                const bool ran = mutate();
                trusted = before;
                if (pick(10) == 0 || !ran) {
                    history.cancel();
                    if (!ran) {
                        ASSERT_EQ(stateOf(), before) << "a refusal changes nothing";
                    }
                } else {
                    const bool recorded = history.commit(core);
                    ASSERT_EQ(recorded, !(std::get<0>(before) == rotationOf(core)));
                    if (recorded) {
                        undoModel.emplace_back(std::get<0>(before), rotationOf(core));
                        redoModel.clear();
                    }
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
