#pragma once

#include "song.h"

#include <cstddef>
#include <cstdint>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

namespace tamo::core {

enum class PreflightIssueKind : std::int32_t {
    None = 0,
    MissingMedia = 1,
    UnreadableMedia = 2,
    MissingCdg = 3,
    UnreadableCdg = 4,
};

// "Missing media", "Unreadable media", "Missing CDG", "Unreadable CDG";
// empty for None.
std::string_view preflightIssueLabel(PreflightIssueKind kind);

struct PreflightIssue {
    std::int32_t songId = 0;
    PreflightIssueKind kind = PreflightIssueKind::None;

    friend bool operator==(const PreflightIssue&, const PreflightIssue&) = default;
};

// The list is bounded so that a folder on a lost drive can't use up memory.
inline constexpr std::size_t kMostPreflightIssues = 10000;
inline constexpr std::uint64_t kPreflightParallelSongs = 1024;
inline constexpr std::uint64_t kPreflightSongsPerWorker = 512;

struct PreflightResult {
    std::uint64_t checkedCount = 0;
    // In library order.
    std::vector<PreflightIssue> issues;
    // More issues were found than are held.
    bool truncated = false;
};

// The status line before any run and after each library change.
inline constexpr std::string_view kPreflightNotCheckedText = "Media preflight not checked";
inline constexpr std::string_view kPreflightRunningText = "Checking media files...";
inline constexpr std::string_view kPreflightNoSongsText = "No songs to preflight";
inline constexpr std::string_view kPreflightStartedLogLine = "Library media preflight started.";

// Whether a song can be played: its media is a regular file that opens, and
// an ".mp3" also has graphics that open. Files are opened, never read, and a
// video's graphics path is never looked at.
PreflightIssueKind checkSongMedia(const Song& song);

// Workers for a run over songCount songs: one under 1024 songs, else
// TAMO_PREFLIGHT_WORKERS or the hardware, at most 8 and one per 512 songs.
unsigned preflightWorkerCount(std::uint64_t songCount);

// Checks every song, which nobody may change meanwhile, on contiguous worker
// slices; stop is tested before each song, so a stopped run returns what it
// found so far. Changes nothing on disk or in the library.
PreflightResult runMediaPreflight(const std::vector<Song>& songs, std::stop_token stop);

// "Preflight OK · <n> songs checked", or "Preflight found <n> issue(s)
// across <checked> songs", with " · additional issues hidden" when truncated.
std::string preflightResultText(const PreflightResult& result);

}  // namespace tamo::core
