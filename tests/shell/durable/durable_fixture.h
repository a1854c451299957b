#pragma once

#include "clock.h"
#include "event_core.h"
#include "recovery_reader.h"
#include "scoped_env.h"
#include "status_sink.h"
#include "temp_dir.h"
#include "timing_sink.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

namespace tamo::test {

// A clock that stands still unless the test moves its system time.
class FakeClock final : public shell::Clock {
public:
    std::int64_t steadyNanoseconds() const override { return 1'000'000'000; }
    std::int64_t systemTicks() const override { return ticks; }

    std::int64_t ticks = 638'000'000'000'000'000;
};

// Keeps every timing point as "<name> <ms> <detail>" and every status line.
class Recorder final : public shell::TimingSink, public shell::StatusSink {
public:
    void recordTimingPoint(std::string_view name, std::uint64_t elapsedMs, std::string_view detail) override {
        points.push_back(std::string(name) + " " + std::to_string(elapsedMs) + " " + std::string(detail));
    }
    void reportStatus(std::string_view text) override { lines.emplace_back(text); }
    std::string lastLine() const { return lines.empty() ? std::string() : lines.back(); }

    std::vector<std::string> points;
    std::vector<std::string> lines;
};

inline std::string readWhole(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// The names in a folder, sorted.
inline std::vector<std::string> namesIn(const std::filesystem::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

inline void writeText(const std::filesystem::path& path, std::string_view text) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

// A temporary data root (XDG_DATA_HOME points into it for the test's
// length) and a media folder of real files beside it.
class DurableTest : public ::testing::Test {
protected:
    void SetUp() override {
        dataHome_.emplace("XDG_DATA_HOME", (temp / "data").c_str());
        std::filesystem::create_directories(dataRoot);
        std::filesystem::create_directories(media);
    }

    // A media file of the given size under the media folder; returns its path.
    std::string addMedia(const std::string& relative, std::size_t bytes = 64) const {
        temp.write("media/" + relative, std::string(bytes, 'x'));
        return (media / relative).string();
    }

    // Loads the media folder into core as the program would.
    void loadLibrary(core::EventCore& core) const {
        auto songs = shell::loadRecoveryLibrary(media);
        ASSERT_TRUE(songs.has_value());
        ASSERT_TRUE(core.replaceLibrary(std::move(*songs)));
    }

    TempDir temp;
    const std::filesystem::path dataRoot = temp / "data/Quillon/Tamo";
    const std::filesystem::path media = std::filesystem::canonical(temp.path()) / "media";

private:
    std::optional<ScopedEnv> dataHome_;
};

}  // namespace tamo::test
