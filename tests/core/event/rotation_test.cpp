#include "event_core.h"
#include "event_fixture.h"
#include "singer_states.h"
#include "song_conflicts.h"

#include <cmath>
#include <gtest/gtest.h>

namespace tamo::core {
namespace {

std::vector<std::int32_t> singerOrder(const EventCore& core) {
    std::vector<std::int32_t> ids;
    for (const Singer& s : core.singers()) ids.push_back(s.id);
    return ids;
}

std::vector<std::int32_t> queueOrder(const EventCore& core) {
    std::vector<std::int32_t> ids;
    for (const QueueEntry& e : core.queue()) ids.push_back(e.id);
    return ids;
}

TEST(Rotation, SingersAreTrimmedRenamedAndMoved) {
    EventCore core;
    test::addSongs(core, 2);
    EXPECT_EQ(core.addSinger(" \t "), 1);
    EXPECT_EQ(core.singers()[0].name, "Singer");
    const auto ana = core.addSinger("  Ana ");
    const auto bo = core.addSinger("Bo");
    EXPECT_EQ(core.singerById(ana)->name, "Ana");

    const auto q = core.enqueueForSinger(1, ana);
    ASSERT_TRUE(core.advanceForSinger(ana));
    core.enqueueForSinger(2, ana);
    EXPECT_FALSE(core.renameSinger(ana, "   "));
    EXPECT_FALSE(core.renameSinger(99, "X"));
    EXPECT_TRUE(core.renameSinger(ana, " Anna "));
    EXPECT_TRUE(core.renameSinger(ana, "Anna"));
    EXPECT_EQ(core.current()->singer, "Anna");
    EXPECT_EQ(core.current()->id, q);
    EXPECT_EQ(core.queue()[0].singer, "Anna");

    EXPECT_TRUE(core.moveSingerBefore(bo, bo));
    EXPECT_FALSE(core.moveSingerBefore(99, 0));
    EXPECT_FALSE(core.moveSingerBefore(bo, 99));
    EXPECT_TRUE(core.moveSingerBefore(1, 0));
    EXPECT_EQ(singerOrder(core), (std::vector<std::int32_t>{ana, bo, 1}));
    EXPECT_TRUE(core.moveSingerBefore(1, ana));
    EXPECT_EQ(singerOrder(core), (std::vector<std::int32_t>{1, ana, bo}));
    EXPECT_TRUE(core.moveSingerBefore(1, bo));
    EXPECT_EQ(singerOrder(core), (std::vector<std::int32_t>{ana, 1, bo}));

    // Deleting the singer of the current performance clears it unarchived.
    core.setPlaybackStatus(PlaybackStatus::Playing);
    EXPECT_TRUE(core.deleteSinger(ana));
    EXPECT_FALSE(core.current());
    EXPECT_TRUE(core.queue().empty());
    EXPECT_TRUE(core.history().empty());
    EXPECT_EQ(core.playbackStatus(), PlaybackStatus::Stopped);
    EXPECT_FALSE(core.deleteSinger(ana));
}

TEST(Rotation, QueueMovesStayWithinOneSingersEntries) {
    EventCore core;
    test::addSongs(core, 3);
    const auto a = core.addSinger("A");
    const auto b = core.addSinger("B");
    const auto a1 = core.enqueueForSinger(1, a);
    const auto b1 = core.enqueueForSinger(2, b);
    const auto a2 = core.enqueueForSinger(3, a);
    const auto b2 = core.enqueueForSinger(1, b);
    const auto a3 = core.enqueueForSinger(2, a);
    EXPECT_EQ(core.enqueueForSinger(99, a), 0);
    EXPECT_EQ(core.enqueueForSinger(1, 99), 0);

    EXPECT_FALSE(core.moveQueuedEntry(a2, 0));
    EXPECT_FALSE(core.moveQueuedEntry(999, 1));
    EXPECT_TRUE(core.moveQueuedEntry(a1, 5));
    EXPECT_EQ(queueOrder(core), (std::vector<std::int32_t>{a2, b1, a1, b2, a3}));
    EXPECT_FALSE(core.moveQueuedEntry(a2, -1));
    EXPECT_FALSE(core.moveQueuedEntry(b2, 1));

    EXPECT_TRUE(core.moveQueuedEntryToTop(a3));
    EXPECT_EQ(queueOrder(core), (std::vector<std::int32_t>{a3, b1, a2, b2, a1}));
    EXPECT_FALSE(core.moveQueuedEntryToTop(a3));

    // Reassign: refusals first, then in front of an entry, then at the end.
    EXPECT_FALSE(core.reassignQueuedEntry(a3, 99, 0));
    EXPECT_TRUE(core.reassignQueuedEntry(a3, b, a3));
    EXPECT_FALSE(core.reassignQueuedEntry(999, b, 0));
    EXPECT_FALSE(core.reassignQueuedEntry(a3, b, a2));
    EXPECT_TRUE(core.reassignQueuedEntry(a3, b, b2));
    EXPECT_EQ(queueOrder(core), (std::vector<std::int32_t>{b1, a2, a3, b2, a1}));
    EXPECT_EQ(core.queue()[2].singer, "B");
    EXPECT_EQ(core.queue()[2].singerId, b);
    EXPECT_TRUE(core.reassignQueuedEntry(a1, b, 0));
    EXPECT_EQ(queueOrder(core), (std::vector<std::int32_t>{b1, a2, a3, b2, a1}));
    const auto c = core.addSinger("C");
    EXPECT_TRUE(core.reassignQueuedEntry(b1, c, 0));
    EXPECT_EQ(queueOrder(core), (std::vector<std::int32_t>{a2, a3, b2, a1, b1}));

    EXPECT_TRUE(core.removeQueuedEntry(a3));
    EXPECT_FALSE(core.removeQueuedEntry(a3));
}

TEST(Rotation, AdvanceArchivesEvenWhenTheQueueIsEmpty) {
    EventCore core;
    test::addSongs(core, 2);
    const auto a = core.addSinger("A");
    const auto b = core.addSinger("B");
    EXPECT_FALSE(core.advance());
    const auto qa = core.enqueueForSinger(1, a);
    const auto qb = core.enqueueForSinger(2, b);

    // A singer without entries refuses before anything is archived.
    ASSERT_TRUE(core.advanceForSinger(b));
    EXPECT_EQ(core.current()->id, qb);
    EXPECT_FALSE(core.advanceForSinger(b));
    EXPECT_FALSE(core.advanceForSinger(99));
    EXPECT_TRUE(core.history().empty());

    ASSERT_TRUE(core.advance());
    EXPECT_EQ(core.current()->id, qa);
    ASSERT_EQ(core.history().size(), 1U);
    EXPECT_EQ(core.history()[0].singer, "B");
    EXPECT_GT(core.history()[0].playedAt, 1.7e9);

    // The second archive case: the current performance goes to history, the
    // answer is false, and a playing status stays playing.
    core.setPlaybackStatus(PlaybackStatus::Playing);
    EXPECT_FALSE(core.advance());
    EXPECT_FALSE(core.current());
    EXPECT_EQ(core.history().size(), 2U);
    EXPECT_EQ(core.playbackStatus(), PlaybackStatus::Playing);
}

TEST(Rotation, PreviousAndReplayReturnPerformances) {
    EventCore core;
    test::addSongs(core, 3);
    const auto a = core.addSinger("A");
    const auto b = core.addSinger("B");
    core.enqueueForSinger(1, a);
    core.enqueueForSinger(2, b);
    const auto q3 = core.enqueueForSinger(3, a);
    ASSERT_TRUE(core.advance());
    ASSERT_TRUE(core.advance());  // history: A/1; current B/2
    ASSERT_TRUE(core.advance());  // history: A/1, B/2; current A/3
    ASSERT_TRUE(core.deleteSinger(b));
    // B is gone; the current performance is A's and stays.
    EXPECT_EQ(core.current()->id, q3);

    const auto nextQueueId = core.nextQueueId();
    ASSERT_TRUE(core.previous());
    // B's entry is newer but unplayable; it stays, A's comes back fresh.
    EXPECT_EQ(core.current()->song.id, 1);
    EXPECT_EQ(core.current()->id, nextQueueId);
    ASSERT_EQ(core.history().size(), 1U);
    EXPECT_EQ(core.history()[0].singer, "B");
    ASSERT_EQ(core.queue().size(), 1U);
    EXPECT_EQ(core.queue()[0].id, q3);
    EXPECT_FALSE(core.previous());

    // Replay of the same singer and song only stops playback.
    ASSERT_TRUE(core.advance());  // history B/2, A/1 ; current A/3
    const auto historyId = core.history().back().id;
    core.setPlaybackStatus(PlaybackStatus::Playing);
    core.restoreCurrent(1, a);
    const auto currentId = core.current()->id;
    core.setPlaybackStatus(PlaybackStatus::Playing);
    EXPECT_TRUE(core.replayHistoryEntry(historyId, a));
    EXPECT_EQ(core.current()->id, currentId);
    EXPECT_EQ(core.playbackStatus(), PlaybackStatus::Stopped);

    const auto c = core.addSinger("C");
    EXPECT_TRUE(core.replayHistoryEntry(historyId, c));
    EXPECT_EQ(core.current()->singerId, c);
    EXPECT_EQ(core.queue()[0].id, currentId);
    EXPECT_EQ(core.history().size(), 2U);
    EXPECT_FALSE(core.replayHistoryEntry(historyId, 99));
    EXPECT_FALSE(core.replayHistoryEntry(999, c));
}

TEST(Rotation, ActivateKeepsIdsAndReturnsCurrentToTheFront) {
    EventCore core;
    test::addSongs(core, 3);
    const auto a = core.addSinger("A");
    const auto q1 = core.enqueueForSinger(1, a);
    const auto q2 = core.enqueueForSinger(2, a);
    const auto q3 = core.enqueueForSinger(3, a);
    EXPECT_FALSE(core.activateQueuedEntry(999));
    ASSERT_TRUE(core.activateQueuedEntry(q2));
    EXPECT_EQ(core.current()->id, q2);
    EXPECT_EQ(queueOrder(core), (std::vector<std::int32_t>{q1, q3}));
    core.setPlaybackStatus(PlaybackStatus::Playing);
    ASSERT_TRUE(core.activateQueuedEntry(q3));
    EXPECT_EQ(queueOrder(core), (std::vector<std::int32_t>{q2, q1}));
    EXPECT_EQ(core.playbackStatus(), PlaybackStatus::Stopped);
    EXPECT_TRUE(core.history().empty());
}

TEST(Rotation, EnqueueNewSingerGivesBackTheSingerIdOnFailure) {
    EventCore core;
    test::addSongs(core, 1);
    EXPECT_EQ(core.enqueueNewSinger(5, "Ana"), 0);
    EXPECT_EQ(core.nextSingerId(), 1);
    EXPECT_NE(core.enqueueNewSinger(1, "Ana"), 0);
    EXPECT_NE(core.enqueueNewSinger(1, "Ana"), 0);
    ASSERT_EQ(core.singers().size(), 2U);
    EXPECT_NE(core.singers()[0].id, core.singers()[1].id);
}

TEST(Rotation, LimitsRefuseOrTrim) {
    EventCore core;
    test::addSongs(core, 1);
    for (int i = 0; i < 10000; ++i) ASSERT_NE(core.addSinger("S"), 0);
    EXPECT_EQ(core.addSinger("S"), 0);
    EXPECT_EQ(core.enqueueNewSinger(1, "S"), 0);
    const auto singer = core.singers()[0].id;
    for (int i = 0; i < 100000; ++i) ASSERT_NE(core.enqueueForSinger(1, singer), 0);
    EXPECT_EQ(core.enqueueForSinger(1, singer), 0);
    EXPECT_EQ(core.queue().size(), 100000U);

    // With a full queue, putting the current performance back is refused.
    ASSERT_TRUE(core.restoreHistoryEntry(1, singer, "", 1.0));
    ASSERT_TRUE(core.restoreCurrent(1, singer));
    EXPECT_FALSE(core.previous());
    EXPECT_FALSE(core.replayHistoryEntry(core.history()[0].id, core.singers()[1].id));

    for (int i = 1; i < 100000; ++i) ASSERT_TRUE(core.restoreHistoryEntry(1, singer, "", 2.0 + i));
    ASSERT_EQ(core.history().size(), 100000U);
    const auto oldest = core.history()[0].id;
    ASSERT_TRUE(core.restoreHistoryEntry(1, singer, "", 5.0));
    EXPECT_EQ(core.history().size(), 100000U);
    EXPECT_EQ(core.history()[0].id, oldest + 1);
}

TEST(Rotation, ResetKeepsCountersLibraryAndVolume) {
    EventCore core;
    test::addSongs(core, 1);
    core.addSinger("A");
    core.enqueueNewSinger(1, "B");
    core.setMusicVolume(0.5);
    core.resetEvent();
    EXPECT_TRUE(core.singers().empty());
    EXPECT_EQ(core.songCount(), 1U);
    EXPECT_EQ(core.musicVolume(), 0.5);
    EXPECT_EQ(core.addSinger("C"), 3);
    EXPECT_EQ(core.enqueueForSinger(1, 3), 2);

    core.setMusicVolume(1.5);
    EXPECT_EQ(core.musicVolume(), 1.0);
    core.setMusicVolume(-1);
    EXPECT_EQ(core.musicVolume(), 0.0);
    core.setMusicVolume(std::nan(""));
    EXPECT_EQ(core.musicVolume(), 0.0);
}

TEST(Rotation, HistoryRestoreKeepsFilesThatLeftTheLibrary) {
    EventCore core;
    test::addSongs(core, 1);
    Song gone{0, "/gone/Artist - Lost Song.mp3", "", "", "mp3", ""};
    EXPECT_TRUE(core.restoreHistoryEntry(gone, 4, "  ", 10.0));
    EXPECT_EQ(core.history()[0].song.id, 0);
    EXPECT_EQ(core.history()[0].song.title, "Artist - Lost Song");
    EXPECT_EQ(core.history()[0].singer, "Singer");
    Song noStem{0, "/gone/.mp3", "", "", "", ""};
    EXPECT_TRUE(core.restoreHistoryEntry(noStem, 0, "Z", 0.0));
    EXPECT_EQ(core.history()[1].song.title, ".mp3");
    // A stale id with a known path binds through the path.
    Song stale = *core.songById(1);
    stale.id = 77;
    EXPECT_TRUE(core.restoreHistoryEntry(stale, 0, "Y", 0.0));
    EXPECT_EQ(core.history()[2].song.id, 1);
    EXPECT_FALSE(core.restoreHistoryEntry(Song{}, 0, "Y", 0.0));
    EXPECT_FALSE(core.restoreHistoryEntry(stale, -1, "Y", 0.0));
    EXPECT_FALSE(core.restoreHistoryEntry(stale, 0, "Y", -0.5));
    EXPECT_FALSE(core.restoreHistoryEntry(stale, 0, "Y", INFINITY));
    EXPECT_FALSE(core.restoreHistoryEntry(9, 0, "Y", 1.0));
}

TEST(Rotation, NextEligibleSkipsAwayAndSkippedSingers) {
    EventCore core;
    test::addSongs(core, 2);
    const auto a = core.addSinger("A");
    const auto b = core.addSinger("B");
    const auto c = core.addSinger("C");
    core.enqueueForSinger(1, c);
    const auto qb = core.enqueueForSinger(2, b);
    core.enqueueForSinger(1, a);
    SingerStates states;
    EXPECT_EQ(nextEligibleEntry(core, states)->singerId, a);
    EXPECT_TRUE(setSingerState(states, a, "Skipped"));
    EXPECT_EQ(nextEligibleEntry(core, states)->id, qb);
    EXPECT_FALSE(setSingerState(states, b, "ready"));
    setSingerState(states, b, "Away");
    setSingerState(states, c, "Away");
    EXPECT_EQ(nextEligibleEntry(core, states), nullptr);
    setSingerState(states, c, "Ready");
    EXPECT_FALSE(states.contains(c));
    EXPECT_EQ(singerStateOf(states, c), "Ready");
    EXPECT_EQ(nextEligibleEntry(core, states)->singerId, c);
}

TEST(Rotation, ConflictsLookAtQueueCurrentAndTheNewest25) {
    EventCore core;
    test::addSongs(core, 3);
    const auto a = core.addSinger("A");
    const auto b = core.addSinger("B");
    core.enqueueForSinger(1, a);
    SongConflicts found = findSongConflicts(core, 1, a);
    EXPECT_TRUE(found.sameSingerQueued);
    EXPECT_FALSE(found.otherSingerQueued);
    found = findSongConflicts(core, 1, b);
    EXPECT_TRUE(found.otherSingerQueued && !found.sameSingerQueued);

    core.advance();
    EXPECT_TRUE(findSongConflicts(core, 1, b).current);
    core.advance();  // archived: A sang song 1
    EXPECT_TRUE(findSongConflicts(core, 1, a).recentlyPerformed);
    EXPECT_FALSE(findSongConflicts(core, 1, b).recentlyPerformed);
    // A new singer with the same name matches by name text.
    core.renameSinger(b, "A");
    EXPECT_TRUE(findSongConflicts(core, 1, b).recentlyPerformed);
    core.renameSinger(b, "B");

    for (int i = 0; i < 24; ++i) core.restoreHistoryEntry(2, b, "B", 1.0);
    EXPECT_TRUE(findSongConflicts(core, 1, a).recentlyPerformed);
    core.restoreHistoryEntry(2, b, "B", 1.0);
    EXPECT_FALSE(findSongConflicts(core, 1, a).any());
}

}  // namespace
}  // namespace tamo::core
