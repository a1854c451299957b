#include "media_preflight.h"
#include "scoped_env.h"
#include "temp_dir.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <unistd.h>

namespace tamo::core {
namespace {
namespace fs = std::filesystem;
using Kind = PreflightIssueKind;

Song song(std::int32_t id, const fs::path& media, std::string format, const fs::path& graphics = {}) {
    return Song{id, media.string(), media.stem().string(), "", std::move(format), graphics.string()};
}

TEST(MediaPreflight, ChecksMediaAndAudioGraphicsOnRealFiles) {
    test::TempDir dir;
    for (const char* name : {"ok.mp3", "ok.cdg", "clip.mp4", "bare.mp3", "stale.mp3", "stale.CDG", "SHOUT.MP3",
                             "boxed.mp3", "linked.mp3"}) {
        dir.write(name, "x");
    }
    fs::create_directory(dir / "boxed.cdg");
    fs::create_directory(dir / "folder.mp3");
    // Links are followed, as playback follows them.
    fs::create_symlink(dir / "ok.mp3", dir / "link.mp3");
    fs::create_symlink(dir / "ok.cdg", dir / "linked.cdg");
    fs::create_symlink(dir / "nowhere.mp4", dir / "dangling.mp4");
    const auto at = [&](const char* name) { return dir / name; };

    const std::vector<std::pair<Song, Kind>> cases{
        {song(1, at("ok.mp3"), "mp3", at("ok.cdg")), Kind::None},
        {song(2, at("ok.mp3"), "mp3"), Kind::None},
        {song(3, at("clip.mp4"), "mp4", at("clip.cdg")), Kind::None},  // a video's graphics are never looked at
        {song(4, at("bare.mp3"), "mp3"), Kind::MissingCdg},
        {song(5, at("stale.mp3"), "mp3", dir / "old" / "stale.cdg"), Kind::None},
        {song(6, at("SHOUT.MP3"), "MP3"), Kind::MissingCdg},
        {song(7, at("boxed.mp3"), "mp3", at("boxed.cdg")), Kind::MissingCdg},
        {song(8, at("gone.mp3"), "mp3", at("ok.cdg")), Kind::MissingMedia},
        {song(9, at("folder.mp3"), "mp3"), Kind::MissingMedia},
        {song(10, at("link.mp3"), "mp3", at("ok.cdg")), Kind::None},
        {song(11, "", "mp3"), Kind::MissingMedia},
        {song(12, at("linked.mp3"), "mp3", at("linked.cdg")), Kind::None},
        {song(13, at("linked.mp3"), "mp3"), Kind::None},
        {song(14, at("dangling.mp4"), "mp4"), Kind::MissingMedia},
    };
    std::vector<Song> songs;
    std::vector<PreflightIssue> expectedIssues;
    for (const auto& [item, expected] : cases) {
        EXPECT_EQ(checkSongMedia(item), expected) << item.path;
        songs.push_back(item);
        if (expected != Kind::None) expectedIssues.push_back({item.id, expected});
    }
    const PreflightResult result = runMediaPreflight(songs, {});
    EXPECT_EQ(result.checkedCount, songs.size());
    EXPECT_EQ(result.issues, expectedIssues);
    EXPECT_FALSE(result.truncated);
    EXPECT_EQ(preflightResultText(result), "Preflight found 7 issues across 14 songs");

    songs.resize(5);
    EXPECT_EQ(preflightResultText(runMediaPreflight(songs, {})), "Preflight found 1 issue across 5 songs");
    songs.erase(songs.begin() + 3);
    EXPECT_EQ(preflightResultText(runMediaPreflight(songs, {})), "Preflight OK · 4 songs checked");
    EXPECT_EQ(runMediaPreflight({}, {}).checkedCount, 0u);
    const std::pair<Kind, const char*> labels[] = {{Kind::MissingMedia, "Missing media"},
                                                   {Kind::UnreadableMedia, "Unreadable media"},
                                                   {Kind::MissingCdg, "Missing CDG"},
                                                   {Kind::UnreadableCdg, "Unreadable CDG"}};
    for (const auto& [kind, label] : labels) EXPECT_EQ(preflightIssueLabel(kind), label);
}

TEST(MediaPreflight, FilesThatDoNotOpenAreUnreadable) {
    if (::geteuid() == 0) GTEST_SKIP() << "permissions don't stop root from opening files";
    test::TempDir dir;
    const auto locked = dir.write("locked.mp4");
    const auto graphics = dir.write("audio.cdg");
    fs::permissions(locked, fs::perms::none);
    fs::permissions(graphics, fs::perms::none);
    EXPECT_EQ(checkSongMedia(song(1, locked, "mp4")), Kind::UnreadableMedia);
    EXPECT_EQ(checkSongMedia(song(2, dir.write("audio.mp3"), "mp3", graphics)), Kind::UnreadableCdg);
}

TEST(MediaPreflight, KeepsTheFirstTenThousandIssuesInLibraryOrder) {
    test::TempDir dir;
    const auto present = dir.write("here.mp4");
    const test::ScopedEnv workers("TAMO_PREFLIGHT_WORKERS", "3");

    std::vector<Song> songs;
    for (std::int32_t id = 1; id <= 10001; ++id) songs.push_back(song(id, dir / "lost" / "x.mp4", "mp4"));
    PreflightResult result = runMediaPreflight(songs, {});
    EXPECT_EQ(result.checkedCount, 10001u);
    ASSERT_EQ(result.issues.size(), 10000u);
    EXPECT_TRUE(result.truncated);
    for (std::size_t i = 0; i < result.issues.size(); ++i) {
        ASSERT_EQ(result.issues[i], (PreflightIssue{static_cast<std::int32_t>(i + 1), Kind::MissingMedia}));
    }
    EXPECT_EQ(preflightResultText(result), "Preflight found 10000 issues across 10001 songs · additional issues hidden");

    // Exactly 10000 issues among good songs are all held.
    songs[0].path = present.string();
    songs.push_back(song(10002, present, "mp4"));
    result = runMediaPreflight(songs, {});
    EXPECT_EQ(result.issues.size(), 10000u);
    EXPECT_FALSE(result.truncated);
    EXPECT_EQ(result.issues.front().songId, 2);
    EXPECT_EQ(result.issues.back().songId, 10001);

    std::stop_source stop;
    stop.request_stop();
    result = runMediaPreflight(songs, stop.get_token());
    EXPECT_EQ(result.checkedCount, songs.size());
    EXPECT_TRUE(result.issues.empty());
}

}  // namespace
}  // namespace tamo::core
