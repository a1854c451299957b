#include "media_preflight.h"

#include "karaoke_graphics.h"
#include "parallel_slices.h"
#include "text.h"
#include "unique_fd.h"
#include "worker_count.h"

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>

namespace tamo::core {
namespace {

namespace fs = std::filesystem;

// A song plays through a link as through the file itself, so links are
// followed here, unlike for the durable files. The descriptor is checked
// again because the name can change between the look and the open. Nothing
// is read, so O_NONBLOCK only keeps a FIFO from stalling the open.
bool isRegularFile(const fs::path& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

bool opensAsRegularFile(const fs::path& path) {
    const UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!fd.valid()) return false;
    struct stat status {};
    return ::fstat(fd.get(), &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace

std::string_view preflightIssueLabel(PreflightIssueKind kind) {
    switch (kind) {
        case PreflightIssueKind::MissingMedia: return "Missing media";
        case PreflightIssueKind::UnreadableMedia: return "Unreadable media";
        case PreflightIssueKind::MissingCdg: return "Missing CDG";
        case PreflightIssueKind::UnreadableCdg: return "Unreadable CDG";
        case PreflightIssueKind::None: break;
    }
    return {};
}

PreflightIssueKind checkSongMedia(const Song& song) {
    const fs::path media(song.path);
    if (!isRegularFile(media)) return PreflightIssueKind::MissingMedia;
    if (!opensAsRegularFile(media)) return PreflightIssueKind::UnreadableMedia;
    if (asciiLower(song.format) != "mp3") return PreflightIssueKind::None;

    const std::string graphics = resolveSongGraphics(song);
    if (graphics.empty()) return PreflightIssueKind::MissingCdg;
    const fs::path graphicsPath(graphics);
    if (!isRegularFile(graphicsPath) || !opensAsRegularFile(graphicsPath)) {
        return PreflightIssueKind::UnreadableCdg;
    }
    return PreflightIssueKind::None;
}

unsigned preflightWorkerCount(std::uint64_t songCount) {
    if (songCount < kPreflightParallelSongs) return 1;
    return chooseWorkerCount("TAMO_PREFLIGHT_WORKERS", songCount / kPreflightSongsPerWorker);
}

PreflightResult runMediaPreflight(const std::vector<Song>& songs, std::stop_token stop) {
    PreflightResult result;
    result.checkedCount = songs.size();
    if (songs.empty()) return result;

    struct WorkerIssues {
        std::vector<PreflightIssue> kept;
        std::uint64_t found = 0;
    };
    const unsigned workers = preflightWorkerCount(songs.size());
    std::vector<WorkerIssues> perWorker(workers);
    runInSlices(songs.size(), workers, [&](unsigned worker, std::uint64_t begin, std::uint64_t end) {
        WorkerIssues& mine = perWorker[worker];
        // Issues past the first 10000 of a slice can never be shown, since
        // the joined list keeps library order; they are only counted.
        mine.kept.reserve(static_cast<std::size_t>(std::min<std::uint64_t>(kMostPreflightIssues, end - begin)));
        for (std::uint64_t index = begin; index < end; ++index) {
            if (stop.stop_requested()) return;
            const Song& song = songs[index];
            const PreflightIssueKind kind = checkSongMedia(song);
            if (kind == PreflightIssueKind::None) continue;
            ++mine.found;
            if (mine.kept.size() < kMostPreflightIssues) mine.kept.push_back({song.id, kind});
        }
    });

    std::uint64_t found = 0;
    for (const WorkerIssues& mine : perWorker) {
        found += mine.found;
        const std::size_t room = kMostPreflightIssues - result.issues.size();
        const std::size_t take = std::min(room, mine.kept.size());
        result.issues.insert(result.issues.end(), mine.kept.begin(),
                             mine.kept.begin() + static_cast<std::ptrdiff_t>(take));
    }
    result.truncated = found > result.issues.size();
    return result;
}

std::string preflightResultText(const PreflightResult& result) {
    const std::string checked = std::to_string(result.checkedCount);
    if (result.issues.empty()) return "Preflight OK · " + checked + " songs checked";
    const std::size_t count = result.issues.size();
    std::string text = "Preflight found " + std::to_string(count) + (count == 1 ? " issue" : " issues") +
                       " across " + checked + " songs";
    if (result.truncated) text += " · additional issues hidden";
    return text;
}

}  // namespace tamo::core
