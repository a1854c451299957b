// Commit and undo of single operator actions on a full-size event: 10000
// singers and 100000 queue entries. Each action should commit and undo in
// well under a frame's worth of milliseconds and leave a step below 1 KiB.
#include "event_core.h"
#include "operator_history.h"

#include <benchmark/benchmark.h>

#include <functional>
#include <string>
#include <string_view>

namespace {

using tamo::core::EventCore;
using tamo::core::OperatorHistory;

constexpr int kSingers = 10000;
constexpr int kEntriesPerSinger = 10;
constexpr int kSongs = 2000;

// Sign-ups arrive round by round, so one singer's entries lie 10000 apart.
const EventCore& fullEvent() {
    static const EventCore core = [] {
        EventCore built;
        for (int i = 1; i <= kSongs; ++i) {
            const std::string stem = "/media/karaoke/Some Artist - A Song Title " + std::to_string(i);
            built.upsertSong({0, stem + ".mp3", "A Song Title " + std::to_string(i), "Some Artist", "mp3",
                              stem + ".cdg"});
        }
        for (int i = 1; i <= kSingers; ++i) built.addSinger("Singer number " + std::to_string(i));
        for (int round = 0; round < kEntriesPerSinger; ++round) {
            for (int singer = 1; singer <= kSingers; ++singer) {
                built.enqueueForSinger((singer * 7 + round) % kSongs + 1, singer);
            }
        }
        return built;
    }();
    return core;
}

using Action = std::function<bool(EventCore&)>;

struct Case {
    const char* name;
    Action action;
};

const Case kCases[] = {
    {"move_singer_to_end", [](EventCore& core) { return core.moveSingerBefore(kSingers / 2, 0); }},
    {"rename_singer", [](EventCore& core) { return core.renameSinger(kSingers / 2, "A brand new name"); }},
    {"enqueue_entry", [](EventCore& core) { return core.enqueueForSinger(1, kSingers / 2) != 0; }},
    {"move_entry_to_top",
     [](EventCore& core) {
         // The singer's last entry, which passes all nine earlier ones.
         const std::int32_t last = core.queue()[core.queue().size() - kSingers / 2].id;
         return core.moveQueuedEntryToTop(last);
     }},
};

// The event of the case: a full queue leaves no room for the enqueue, so
// that case starts one entry short.
EventCore eventFor(const Case& which) {
    EventCore core = fullEvent();
    if (std::string_view(which.name) == "enqueue_entry") core.removeQueuedEntry(core.queue().back().id);
    return core;
}

void commitStep(benchmark::State& state) {
    const Case& which = kCases[state.range(0)];
    EventCore core = eventFor(which);
    OperatorHistory history;
    std::uint64_t stepBytes = 0;
    for (auto _ : state) {
        state.PauseTiming();
        history.clear();
        if (!history.begin(core) || !which.action(core)) {
            state.SkipWithError("action refused");
            break;
        }
        state.ResumeTiming();
        const bool committed = history.commit(core);
        state.PauseTiming();
        stepBytes = history.deltaBytes();
        if (!committed || !history.undo(core)) {
            state.SkipWithError("step not recorded or not undone");
            break;
        }
        state.ResumeTiming();
    }
    state.SetLabel(which.name);
    state.counters["stepBytes"] = static_cast<double>(stepBytes);
}

void undoStep(benchmark::State& state) {
    const Case& which = kCases[state.range(0)];
    EventCore core = eventFor(which);
    OperatorHistory history;
    for (auto _ : state) {
        state.PauseTiming();
        history.clear();
        if (!history.begin(core) || !which.action(core) || !history.commit(core)) {
            state.SkipWithError("action not recorded");
            break;
        }
        state.ResumeTiming();
        if (!history.undo(core)) {
            state.SkipWithError("undo refused");
            break;
        }
    }
    state.SetLabel(which.name);
}

}  // namespace

BENCHMARK(commitStep)->DenseRange(0, 3)->Unit(benchmark::kMillisecond);
BENCHMARK(undoStep)->DenseRange(0, 3)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
