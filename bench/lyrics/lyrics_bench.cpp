// Playback costs of the CD+G decoder on a ten-minute song (180000 packets)
// drawn by the project's writer: one 33 ms tick of the playback clock, a
// backward seek that replays the whole song, and loading the file.
#include "cdg_decoder.h"
#include "cdg_writer.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using tamo::core::CdgDecoder;

constexpr double songSeconds = 600.0;

// Verses of three to four second lines, with an instrumental break after
// every sixteen lines, until a few seconds before the end.
std::vector<tamo::cdg::LyricLine> tenMinutesOfLyrics() {
    const char* const vocabulary[] = {"love", "night", "baby", "dancing", "under", "the", "moonlight", "you",
                                      "and", "me", "forever", "tonight", "heart", "is", "burning", "like",
                                      "fire", "hold", "on", "never", "let", "go", "sing", "it", "loud"};
    std::mt19937 random(2024);
    std::vector<tamo::cdg::LyricLine> lines;
    double t = 8.0;
    for (int line = 0; t < songSeconds - 20.0; ++line) {
        std::string text;
        const int words = 4 + static_cast<int>(random() % 5);
        for (int w = 0; w < words; ++w) text += std::string(w ? " " : "") + vocabulary[random() % std::size(vocabulary)];
        const double length = 3.0 + (random() % 16) / 10.0;
        lines.push_back(tamo::cdg::timeLyricLine(text, t, t + length - 0.2));
        t += length + (line % 16 == 15 ? 12.0 : 0.0);
    }
    return lines;
}

// A file in the temporary folder, removed at exit.
class TempFile {
public:
    explicit TempFile(const std::vector<std::uint8_t>& bytes) {
        path_ = fs::temp_directory_path() / ("tamo-bench-lyrics-" + std::to_string(::getpid()) + "-" +
                                             std::to_string(counter_++) + ".cdg");
        std::ofstream out(path_, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }
    ~TempFile() {
        std::error_code ec;
        fs::remove(path_, ec);
    }
    std::string path() const { return path_.string(); }

private:
    static inline int counter_ = 0;
    fs::path path_;
};

const TempFile& lyricSong() {
    static const TempFile file([] {
        tamo::cdg::CdgWriterOptions options;
        options.title = "Benchmark Ballad";
        options.artist = "The Decoders";
        options.duration = songSeconds;
        return tamo::cdg::writeCdg(tenMinutesOfLyrics(), options).bytes;
    }());
    return file;
}

// The same length with every packet a tile XOR: far busier than any song.
const TempFile& allTilesSong() {
    static const TempFile file([] {
        std::vector<std::uint8_t> bytes(180000 * 24, 0);
        std::mt19937 random(7);
        for (std::size_t at = 0; at < bytes.size(); at += 24) {
            bytes[at] = 9;
            bytes[at + 1] = 38;
            for (std::size_t i = 4; i < 20; ++i) bytes[at + i] = static_cast<std::uint8_t>(random());
            bytes[at + 6] %= 18;
            bytes[at + 7] %= 50;
        }
        return bytes;
    }());
    return file;
}

void describe(benchmark::State& state, const CdgDecoder& decoder) {
    state.counters["packets"] = static_cast<double>(decoder.packetCount());
}

void BM_PlaybackTick(benchmark::State& state) {
    CdgDecoder decoder;
    if (!decoder.load(lyricSong().path())) state.SkipWithError("load failed");
    const double tick = 1.0 / 30;  // 10 packets
    double t = 0.0;
    std::uint64_t ticks = 0;
    const std::uint64_t startGeneration = decoder.frameGeneration();
    std::uint64_t wraps = 0;
    for (auto _ : state) {
        t += tick;
        if (t >= decoder.duration()) {
            state.PauseTiming();
            decoder.renderAt(0.0);
            t = 0.0;
            ++wraps;
            state.ResumeTiming();
        }
        benchmark::DoNotOptimize(decoder.renderAt(t));
        ++ticks;
    }
    describe(state, decoder);
    state.counters["frames_per_tick"] =
        static_cast<double>(decoder.frameGeneration() - startGeneration - wraps) / static_cast<double>(ticks);
}
BENCHMARK(BM_PlaybackTick)->Unit(benchmark::kMicrosecond);

void fullReplay(benchmark::State& state, const TempFile& song) {
    CdgDecoder decoder;
    if (!decoder.load(song.path())) state.SkipWithError("load failed");
    // From the end, a seek to the last packet but one replays everything.
    const double nearEnd = (static_cast<double>(decoder.packetCount()) - 1.5) / 300;
    for (auto _ : state) {
        state.PauseTiming();
        decoder.renderAt(decoder.duration());
        state.ResumeTiming();
        benchmark::DoNotOptimize(decoder.renderAt(nearEnd));
    }
    describe(state, decoder);
}

void BM_SeekBackFullReplay(benchmark::State& state) { fullReplay(state, lyricSong()); }
BENCHMARK(BM_SeekBackFullReplay)->Unit(benchmark::kMillisecond);

void BM_SeekBackFullReplayAllTiles(benchmark::State& state) { fullReplay(state, allTilesSong()); }
BENCHMARK(BM_SeekBackFullReplayAllTiles)->Unit(benchmark::kMillisecond);

void BM_Load(benchmark::State& state) {
    CdgDecoder decoder;
    for (auto _ : state) benchmark::DoNotOptimize(decoder.load(lyricSong().path()));
    describe(state, decoder);
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(decoder.packets().size()));
}
BENCHMARK(BM_Load)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
