#pragma once

#include "../files/file_test_support.h"
#include "media_index.h"
#include "temp_dir.h"

#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <string_view>
#include <sys/mount.h>
#include <system_error>
#include <vector>

namespace tamo::core {

// Readable failure output for songs and stamps.
inline void PrintTo(const Song& song, std::ostream* out) {
    *out << "{" << song.id << ", \"" << song.path << "\", \"" << song.artist << "\", \"" << song.title << "\", \""
         << song.format << "\", \"" << song.cdgPath << "\"}";
}
inline void PrintTo(const DirectoryStamp& stamp, std::ostream* out) {
    *out << "{\"" << stamp.key << "\", " << stamp.timestamp << ", " << stamp.nameCount << ", " << stamp.nameHash << "}";
}

}  // namespace tamo::core

namespace tamo::test {

// What a scan failure carried, kept without slicing the exception.
struct ScanFailure {
    std::string text;
    std::error_code code;
    std::string path;
};

// Runs call and returns the scan failure it throws; an empty text if none.
template <typename Call>
ScanFailure scanFailure(Call&& call) {
    try {
        call();
    } catch (const std::filesystem::filesystem_error& error) {
        return ScanFailure{error.what(), error.code(), error.path1().string()};
    }
    return {};
}

// Whether call throws a scan failure with exactly this text and code.
template <typename Call>
::testing::AssertionResult failsWith(Call&& call, std::string_view text, std::errc code) {
    const ScanFailure failure = scanFailure(call);
    if (failure.text == text && failure.code == std::make_error_code(code)) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "threw \"" << failure.text << "\" (" << failure.code.message() << ")";
}

inline std::string canonicalText(const std::filesystem::path& path) {
    return std::filesystem::canonical(path).string();
}

inline std::vector<std::string> songPaths(const std::vector<core::Song>& songs) {
    std::vector<std::string> paths;
    for (const auto& song : songs) paths.push_back(song.path);
    return paths;
}

// Songs with only a path, numbered from 1.
inline std::vector<core::Song> songsAt(const std::vector<std::string>& paths) {
    std::vector<core::Song> songs;
    for (const std::string& path : paths) {
        core::Song song;
        song.id = static_cast<std::int32_t>(songs.size() + 1);
        song.path = path;
        songs.push_back(std::move(song));
    }
    return songs;
}

// A mount for one scope: undone (lazily, so a busy one can't stay) when the
// object goes away. Mounting needs privileges; tests skip when it fails.
class ScopedMount {
public:
    ScopedMount(const char* source, const std::filesystem::path& target, const char* type, unsigned long flags,
                const char* data)
        : target_(target) {
        mounted_ = ::mount(source, target.c_str(), type, flags, data) == 0;
    }
    ~ScopedMount() {
        if (mounted_) ::umount2(target_.c_str(), MNT_DETACH);
    }
    ScopedMount(const ScopedMount&) = delete;
    ScopedMount& operator=(const ScopedMount&) = delete;

    bool mounted() const { return mounted_; }

private:
    std::filesystem::path target_;
    bool mounted_ = false;
};

// Progress reports collected for inspection.
struct ProgressLog {
    std::vector<std::pair<std::uint64_t, std::uint64_t>> calls;
    core::ScanProgress callback() {
        return [this](std::uint64_t done, std::uint64_t total) { calls.emplace_back(done, total); };
    }
    bool saw(std::uint64_t done, std::uint64_t total) const {
        return std::find(calls.begin(), calls.end(), std::pair{done, total}) != calls.end();
    }
};

}  // namespace tamo::test
