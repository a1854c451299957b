#pragma once

#include "clock.h"
#include "event_core.h"
#include "recovery_reader.h"
#include "singer_states.h"
#include "status_sink.h"
#include "temp_dir.h"
#include "timing_sink.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace tamo::test {

// A clock whose hands only the test moves.
class FakeClock final : public shell::Clock {
public:
    std::int64_t steadyNanoseconds() const override { return steadyNs; }
    std::int64_t systemTicks() const override { return ticks; }

    std::int64_t steadyNs = 1'000'000'000;
    std::int64_t ticks = 638'000'000'000'000'000;
};

struct TimingRecord {
    std::string name;
    std::uint64_t elapsedMs = 0;
    std::string detail;
};

class RecordingTimingSink final : public shell::TimingSink {
public:
    void recordTimingPoint(std::string_view name, std::uint64_t elapsedMs, std::string_view detail) override {
        points.push_back({std::string(name), elapsedMs, std::string(detail)});
    }
    std::vector<TimingRecord> points;
};

class RecordingStatusSink final : public shell::StatusSink {
public:
    void reportStatus(std::string_view text) override { lines.emplace_back(text); }
    std::string last() const { return lines.empty() ? std::string() : lines.back(); }
    std::vector<std::string> lines;
};

inline std::string readWhole(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// A temporary data root (XDG_DATA_HOME points into it for the test's
// length) and a media folder of real files beside it.
class DurableTest : public ::testing::Test {
protected:
    void SetUp() override {
        const char* old = std::getenv("XDG_DATA_HOME");
        if (old != nullptr) savedDataHome_ = old;
        hadDataHome_ = old != nullptr;
        ::setenv("XDG_DATA_HOME", (temp / "data").c_str(), 1);
        dataRoot = temp / "data" / "Quillon" / "Tamo";
        std::filesystem::create_directories(dataRoot);
        media = std::filesystem::canonical(temp.path()) / "media";
        std::filesystem::create_directories(media);
    }
    void TearDown() override {
        if (hadDataHome_) ::setenv("XDG_DATA_HOME", savedDataHome_.c_str(), 1);
        else ::unsetenv("XDG_DATA_HOME");
    }

    // A media file of the given size under the media folder; returns its path.
    std::string addMedia(const std::string& relative, std::size_t bytes = 64) const {
        const std::filesystem::path file = media / relative;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << std::string(bytes, 'x');
        return file.string();
    }

    // Loads the media folder into core as the program would.
    void loadLibrary(core::EventCore& core) const {
        auto songs = shell::loadRecoveryLibrary(media);
        ASSERT_TRUE(songs.has_value());
        ASSERT_TRUE(core.replaceLibrary(std::move(*songs)));
    }

    TempDir temp;
    std::filesystem::path dataRoot;
    std::filesystem::path media;

private:
    std::string savedDataHome_;
    bool hadDataHome_ = false;
};

}  // namespace tamo::test
