// List operations of the event at its limits: 10000 singers and a queue of
// 100000 entries (99999 where the operation itself adds one).

#include "event_core.h"
#include "operations.h"

#include <benchmark/benchmark.h>
#include <string>

namespace {

using tamo::core::EventCore;

constexpr int kSingers = 10000;
constexpr int kSongs = 2000;

// Singer 1 owns 1000 entries spread evenly through the queue; the others
// share the rest in rotation order.
EventCore makeFullEvent(int queueSize) {
    EventCore core;
    for (int i = 1; i <= kSongs; ++i) {
        tamo::core::Song song;
        song.path = "/media/Artist " + std::to_string(i % 97) + " - Title " + std::to_string(i) + ".mp3";
        song.title = "Title " + std::to_string(i);
        song.artist = "Artist " + std::to_string(i % 97);
        song.format = "mp3";
        song.cdgPath = "/media/Artist - Title " + std::to_string(i) + ".cdg";
        core.upsertSong(song);
    }
    for (int i = 1; i <= kSingers; ++i) core.addSinger("Singer " + std::to_string(i));
    for (int i = 0; i < queueSize; ++i) {
        const int singer = i % (queueSize / 1000) == 0 ? 1 : 2 + i % (kSingers - 1);
        core.enqueueForSinger(1 + i % kSongs, singer);
    }
    core.advance();
    core.enqueueForSinger(1, 2);
    for (int i = 0; i < 2000; ++i) core.restoreHistoryEntry(1 + i % kSongs, 2 + i % 50, "", 1.7e9 + i);
    return core;
}

void BM_EnqueueForSinger(benchmark::State& state) {
    EventCore core = makeFullEvent(99999);
    for (auto _ : state) {
        const auto id = core.enqueueForSinger(7, 5000);
        state.PauseTiming();
        core.removeQueuedEntry(id);
        state.ResumeTiming();
        benchmark::DoNotOptimize(id);
    }
}

void BM_AdvanceForSinger(benchmark::State& state) {
    EventCore core = makeFullEvent(100000);
    // The last singer's first entry lies near the end of the queue.
    const auto singer = core.queue().back().singerId;
    for (auto _ : state) {
        const bool done = core.advanceForSinger(singer);
        state.PauseTiming();
        core.enqueueForSinger(9, singer);
        state.ResumeTiming();
        benchmark::DoNotOptimize(done);
    }
}

void BM_MoveQueuedEntryToTop(benchmark::State& state) {
    EventCore core = makeFullEvent(100000);
    for (auto _ : state) {
        state.PauseTiming();
        std::int32_t last = 0;
        for (const auto& entry : core.queue()) {
            if (entry.singerId == 1) last = entry.id;
        }
        state.ResumeTiming();
        benchmark::DoNotOptimize(core.moveQueuedEntryToTop(last));
    }
}

void BM_ReassignQueuedEntry(benchmark::State& state) {
    EventCore core = makeFullEvent(100000);
    std::int32_t target = 3;
    for (auto _ : state) {
        const auto id = core.queue()[5].id;
        benchmark::DoNotOptimize(core.reassignQueuedEntry(id, target, 0));
        target = target == 3 ? 9000 : 3;
    }
}

void BM_DeleteSinger(benchmark::State& state) {
    EventCore core = makeFullEvent(100000);
    for (auto _ : state) {
        state.PauseTiming();
        const auto singer = core.singers()[kSingers / 2].id;
        std::vector<std::int32_t> songs;
        for (const auto& entry : core.queue()) {
            if (entry.singerId == singer) songs.push_back(entry.song.id);
        }
        state.ResumeTiming();
        benchmark::DoNotOptimize(core.deleteSinger(singer));
        state.PauseTiming();
        const auto again = core.addSinger("Again");
        for (const auto song : songs) core.enqueueForSinger(song, again);
        state.ResumeTiming();
    }
}

void BM_RestoreEvent(benchmark::State& state) {
    EventCore core = makeFullEvent(100000);
    for (auto _ : state) {
        state.PauseTiming();
        auto snapshot = core.snapshot();
        state.ResumeTiming();
        benchmark::DoNotOptimize(core.restoreEvent(std::move(snapshot)));
    }
}

void BM_StateOperation(benchmark::State& state) {
    EventCore core = makeFullEvent(100000);
    const tamo::core::OperationRequest request{"state", {}};
    std::size_t bytes = 0;
    for (auto _ : state) {
        const auto response = tamo::core::dispatchOperation(core, nullptr, request);
        bytes = response.body.size();
        benchmark::DoNotOptimize(bytes);
    }
    state.counters["bodyBytes"] = static_cast<double>(bytes);
}

#define TAMO_EVENT_BENCH(fn) \
    BENCHMARK(fn)->Unit(benchmark::kMillisecond)->Repetitions(5)->ReportAggregatesOnly(true)->DisplayAggregatesOnly(true)

TAMO_EVENT_BENCH(BM_EnqueueForSinger);
TAMO_EVENT_BENCH(BM_AdvanceForSinger);
TAMO_EVENT_BENCH(BM_MoveQueuedEntryToTop);
TAMO_EVENT_BENCH(BM_ReassignQueuedEntry);
TAMO_EVENT_BENCH(BM_DeleteSinger);
TAMO_EVENT_BENCH(BM_RestoreEvent);
TAMO_EVENT_BENCH(BM_StateOperation);

}  // namespace

BENCHMARK_MAIN();
