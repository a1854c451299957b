// Saves and reads of the recovery file for a typical night (40 singers, 300
// queued songs, 1000 performances) and for the largest event that fits the
// 32 MiB file limit. A save runs on the UI thread after every change, so its
// cost is split into serialising (JSON and one size/time lookup per media
// file), plain writing of the two files, and the rest of the commit, which
// is the flushing to disk and the verifying read-back.

#include "recovery_reader.h"
#include "recovery_writer.h"

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace tamo;

struct Night {
    fs::path root;
    core::EventCore event;
    std::string mediaFolder;
    core::SingerStates states;
};

// Defined before the cleanup below, so it outlives it.
std::vector<fs::path> temporaryRoots;

std::vector<fs::path>& tempRoots() { return temporaryRoots; }

fs::path makeTempRoot() {
    std::string pattern = (fs::temp_directory_path() / "tamo-bench-recovery-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) std::abort();
    tempRoots().push_back(pattern);
    return pattern;
}

// A library of `files` real media files and an event built through the
// event operations, as the program would hold it.
std::unique_ptr<Night> buildNight(int files, int singers, int queued, int performed, bool fillToLimit) {
    auto night = std::make_unique<Night>();
    night->root = makeTempRoot();
    const fs::path media = night->root / "media";
    fs::create_directories(media);
    std::vector<core::Song> songs;
    for (int i = 0; i < files; ++i) {
        const fs::path path = media / ("Artist " + std::to_string(i % 97) + " - Song Title Number " +
                                       std::to_string(i) + ".mp4");
        std::ofstream(path) << "media";
        songs.push_back(core::Song{0, path.string(), "Song Title Number " + std::to_string(i),
                                   "Artist " + std::to_string(i % 97), "mp4", ""});
    }
    night->mediaFolder = media.string();
    core::EventCore& event = night->event;
    event.replaceLibrary(songs);
    for (int i = 0; i < singers; ++i) event.addSinger("Singer number " + std::to_string(i));
    const auto& rotation = event.singers();
    for (int i = 0; i < queued; ++i) {
        event.enqueueForSinger(event.songs()[static_cast<std::size_t>(i) % event.songs().size()].id,
                               rotation[static_cast<std::size_t>(i) % rotation.size()].id);
    }
    event.advanceForSinger(rotation[0].id);
    const auto perform = [&](int i) {
        return event.restoreHistoryEntry(event.songs()[static_cast<std::size_t>(i * 7) % event.songs().size()].id,
                                         rotation[static_cast<std::size_t>(i) % rotation.size()].id, "",
                                         1.7e9 + i * 211.37);
    };
    for (int i = 0; i < performed; ++i) perform(i);
    if (fillToLimit) {
        // History grows until the next batch would pass the file limit.
        for (int i = performed;; i += 500) {
            if (shell::estimateRecoveryJsonSize(shell::RecoveryEventView::of(event), night->mediaFolder,
                                                night->states) > 0x2000000 - 500 * 700)
                break;
            for (int k = 0; k < 500; ++k) perform(i + k);
        }
    }
    for (std::size_t i = 0; i < rotation.size(); i += 5) night->states[rotation[i].id] = "Away";
    return night;
}

Night& typical() {
    static const auto night = buildNight(2000, 40, 300, 1000, false);
    return *night;
}

Night& largest() {
    static const auto night = buildNight(5000, 10000, 40000, 0, true);
    return *night;
}

Night& nightFor(const benchmark::State& state) { return state.range(0) == 0 ? typical() : largest(); }

void BM_Serialise(benchmark::State& state) {
    Night& night = nightFor(state);
    std::size_t bytes = 0;
    for (auto _ : state) {
        auto text = shell::serialiseEventRecovery(shell::RecoveryEventView::of(night.event), night.mediaFolder, 1234,
                                                  night.states);
        if (!text) state.SkipWithError("event does not serialise");
        else bytes = text->size();
        benchmark::DoNotOptimize(text);
    }
    state.counters["bytes"] = static_cast<double>(bytes);
}

void BM_Save(benchmark::State& state) {
    Night& night = nightFor(state);
    const shell::RecoveryFiles files{night.root / "event-recovery.json", night.root / "event-recovery.json.bak"};
    double serialise = 0;
    double commit = 0;
    std::uint64_t bytes = 0;
    for (auto _ : state) {
        shell::RecoveryWriteTimings timings;
        if (!shell::WriteEventRecovery(shell::RecoveryEventView::of(night.event), night.mediaFolder, 1234,
                                       night.states, files, &timings))
            state.SkipWithError("save failed");
        serialise += static_cast<double>(timings.serialiseNs) / 1e6;
        commit += static_cast<double>(timings.commitNs) / 1e6;
        bytes = timings.bytes;
    }
    const double n = static_cast<double>(state.iterations());
    state.counters["bytes"] = static_cast<double>(bytes);
    state.counters["serialise_ms"] = serialise / n;
    state.counters["commit_ms"] = commit / n;
}

// The same bytes written as the commit writes them (a temporary and the
// backup copy, each renamed into place) without flushing or reading back:
// the commit minus this is the cost of durability.
void BM_PlainWrite(benchmark::State& state) {
    Night& night = nightFor(state);
    const auto text = shell::serialiseEventRecovery(shell::RecoveryEventView::of(night.event), night.mediaFolder,
                                                    1234, night.states);
    const fs::path target = night.root / "plain.json";
    for (auto _ : state) {
        for (const char* name : {"plain.tmp", "plain.bak.tmp"}) {
            const fs::path temporary = night.root / name;
            const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
            if (fd < 0 || ::write(fd, text->data(), text->size()) != static_cast<ssize_t>(text->size()))
                state.SkipWithError("write failed");
            ::close(fd);
            fs::rename(temporary, target);
        }
    }
    state.counters["bytes"] = static_cast<double>(text->size());
}

void BM_Read(benchmark::State& state) {
    Night& night = nightFor(state);
    const shell::RecoveryFiles files{night.root / "read.json", night.root / "read.json.bak"};
    if (!shell::WriteEventRecovery(shell::RecoveryEventView::of(night.event), night.mediaFolder, 1234, night.states,
                                   files)) {
        state.SkipWithError("save failed");
        return;
    }
    // The library is already in memory, as after the index cache was read;
    // this measures parsing, checking and binding.
    shell::RecoveryReadOptions options;
    const std::vector<core::Song> songs = night.event.songs();
    options.loadLibrary = [&](const fs::path&) { return std::optional<std::vector<core::Song>>(songs); };
    for (auto _ : state) {
        core::EventCore event;
        std::string folder;
        std::int64_t position = 0;
        core::SingerStates states;
        const auto status = shell::readEventRecovery(files.primary, event, folder, position, states, options);
        if (status != shell::RecoveryReadStatus::Complete) state.SkipWithError("read was not complete");
        benchmark::DoNotOptimize(event);
    }
    state.counters["bytes"] = static_cast<double>(fs::file_size(files.primary));
}

BENCHMARK(BM_Serialise)->Arg(0)->Arg(1)->ArgName("largest")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PlainWrite)->Arg(0)->Arg(1)->ArgName("largest")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Save)->Arg(0)->Arg(1)->ArgName("largest")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Read)->Arg(0)->Arg(1)->ArgName("largest")->Unit(benchmark::kMillisecond);

// Removes the temporary media folders and files when the program ends.
struct Cleanup {
    ~Cleanup() {
        std::error_code error;
        for (const fs::path& root : tempRoots()) fs::remove_all(root, error);
    }
} cleanup;

}  // namespace

BENCHMARK_MAIN();
