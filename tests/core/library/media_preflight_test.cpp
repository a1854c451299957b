#include "media_preflight.h"
#include "temp_dir.h"
#include "scoped_env.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

namespace tamo::core {
namespace {
namespace fs = std::filesystem;

Song song(std::int32_t id, const fs::path& media, std::string format, const fs::path& graphics = {}) {
    Song made;
    made.id = id;
    made.path = media.string();
    made.title = media.stem().string();
    made.format = std::move(format);
    made.cdgPath = graphics.string();
    return made;
}

TEST(MediaPreflight, ChecksMediaAndAudioGraphicsOnRealFiles) {
    test::TempDir dir;
    const auto ok = dir.write("ok.mp3", "id3");
    const auto okGraphics = dir.write("ok.cdg");
    const auto video = dir.write("clip.mp4");
    const auto bare = dir.write("bare.mp3");
    const auto stale = dir.write("stale.mp3");
    dir.write("stale.CDG");
    const auto shouting = dir.write("SHOUT.MP3");
    const auto boxed = dir.write("boxed.mp3");
    fs::create_directory(dir / "boxed.cdg");
    fs::create_directory(dir / "folder.mp3");
    fs::create_symlink(ok, dir / "link.mp3");
    const auto linkedAudio = dir.write("linked.mp3");
    fs::create_symlink(okGraphics, dir / "linked.cdg");
    fs::create_symlink(dir / "nowhere.mp4", dir / "dangling.mp4");

    struct Case {
        Song song;
        PreflightIssueKind expected;
    };
    const std::vector<Case> cases{
        {song(1, ok, "mp3", okGraphics), PreflightIssueKind::None},
        {song(2, ok, "mp3"), PreflightIssueKind::None},
        {song(3, video, "mp4", dir / "clip.cdg"), PreflightIssueKind::None},
        {song(4, bare, "mp3"), PreflightIssueKind::MissingCdg},
        {song(5, stale, "mp3", dir / "old" / "stale.cdg"), PreflightIssueKind::None},
        {song(6, shouting, "MP3"), PreflightIssueKind::MissingCdg},
        {song(7, boxed, "mp3", dir / "boxed.cdg"), PreflightIssueKind::MissingCdg},
        {song(8, dir / "gone.mp3", "mp3", okGraphics), PreflightIssueKind::MissingMedia},
        {song(9, dir / "folder.mp3", "mp3"), PreflightIssueKind::MissingMedia},
        {song(10, dir / "link.mp3", "mp3", okGraphics), PreflightIssueKind::None},
        {song(11, "", "mp3"), PreflightIssueKind::MissingMedia},
        {song(12, linkedAudio, "mp3", dir / "linked.cdg"), PreflightIssueKind::None},
        {song(13, linkedAudio, "mp3"), PreflightIssueKind::None},
        {song(14, dir / "dangling.mp4", "mp4"), PreflightIssueKind::MissingMedia},
    };
    std::vector<Song> songs;
    std::vector<PreflightIssue> expectedIssues;
    for (const Case& c : cases) {
        EXPECT_EQ(checkSongMedia(c.song), c.expected) << c.song.path;
        songs.push_back(c.song);
        if (c.expected != PreflightIssueKind::None) expectedIssues.push_back({c.song.id, c.expected});
    }

    const PreflightResult result = runMediaPreflight(songs, {});
    EXPECT_EQ(result.checkedCount, songs.size());
    EXPECT_EQ(result.issues, expectedIssues);
    EXPECT_FALSE(result.truncated);
    EXPECT_EQ(preflightResultText(result), "Preflight found 7 issues across 14 songs");
    EXPECT_EQ(preflightIssueLabel(result.issues.front().kind), "Missing CDG");
    EXPECT_EQ(preflightIssueLabel(PreflightIssueKind::MissingMedia), "Missing media");
}

TEST(MediaPreflight, FilesThatDoNotOpenAreUnreadable) {
    if (::geteuid() == 0) GTEST_SKIP() << "permissions don't stop root from opening files";
    test::TempDir dir;
    const auto locked = dir.write("locked.mp4");
    const auto audio = dir.write("audio.mp3");
    const auto graphics = dir.write("audio.cdg");
    fs::permissions(locked, fs::perms::none);
    fs::permissions(graphics, fs::perms::none);
    EXPECT_EQ(checkSongMedia(song(1, locked, "mp4")), PreflightIssueKind::UnreadableMedia);
    EXPECT_EQ(checkSongMedia(song(2, audio, "mp3", graphics)), PreflightIssueKind::UnreadableCdg);
    EXPECT_EQ(preflightIssueLabel(PreflightIssueKind::UnreadableCdg), "Unreadable CDG");
}

TEST(MediaPreflight, ResultTexts) {
    PreflightResult result;
    result.checkedCount = 5;
    EXPECT_EQ(preflightResultText(result), "Preflight OK · 5 songs checked");
    result.issues.push_back({3, PreflightIssueKind::MissingCdg});
    EXPECT_EQ(preflightResultText(result), "Preflight found 1 issue across 5 songs");
    result.truncated = true;
    EXPECT_EQ(preflightResultText(result), "Preflight found 1 issue across 5 songs · additional issues hidden");
    EXPECT_EQ(runMediaPreflight({}, {}).checkedCount, 0u);
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
        ASSERT_EQ(result.issues[i].songId, static_cast<std::int32_t>(i + 1));
        ASSERT_EQ(result.issues[i].kind, PreflightIssueKind::MissingMedia);
    }
    EXPECT_EQ(preflightResultText(result),
              "Preflight found 10000 issues across 10001 songs · additional issues hidden");

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

TEST(MediaPreflight, IgnoresTheWorkerSettingForSmallLibraries) {
    {
        const test::ScopedEnv env("TAMO_PREFLIGHT_WORKERS", "4");
        EXPECT_EQ(preflightWorkerCount(1023), 1u);
        EXPECT_EQ(preflightWorkerCount(1536), 3u);
        EXPECT_EQ(preflightWorkerCount(100000), 4u);
    }
    const test::ScopedEnv env("TAMO_PREFLIGHT_WORKERS", "32");
    EXPECT_EQ(preflightWorkerCount(100000), 8u);
}

}  // namespace
}  // namespace tamo::core
