#include "library_test_support.h"
#include "media_index_cache.h"
#include "media_index_load.h"

#include <gtest/gtest.h>

namespace tamo::core {
namespace {
namespace fs = std::filesystem;
using test::scanFailure;
using test::slurp;

TEST(MediaIndexLoad, EachModeUsesOrRebuildsTheCacheAsItShould) {
    test::TempDir dir;
    dir.write("music/Abba/Abba - Waterloo.mp3");
    dir.write("music/Abba/Abba - Waterloo.cdg");
    dir.write("music/Queen - Bohemian Rhapsody.mp4");
    const fs::path root = dir / "music";
    const fs::path cache = dir / "state" / "media-index-cache.tsv";
    const std::string canonical = test::canonicalText(root);

    // First load: a trusted scan, written to a cache in a folder made for it.
    const MediaIndexLoad first = loadMediaIndex(root, cache, MediaIndexMode::TrustCache, {});
    EXPECT_TRUE(first.rebuilt);
    ASSERT_EQ(first.songs.size(), 2u);
    EXPECT_EQ(first.songs[1].cdgPath, canonical + "/Queen - Bohemian Rhapsody.cdg");  // assumed, not checked
    EXPECT_NE(slurp(cache).find("ROOT\t" + canonical + "\n"), std::string::npos);

    test::ProgressLog log;
    const MediaIndexLoad cached = loadMediaIndex(root, cache, MediaIndexMode::TrustCache, log.callback());
    EXPECT_FALSE(cached.rebuilt);
    EXPECT_EQ(cached.songs, first.songs);
    EXPECT_TRUE(log.saw(0, 2));
    EXPECT_TRUE(log.saw(2, 2));

    // A new file is not noticed by a trusted load, but by a verified one.
    dir.write("music/Abba/Abba - SOS.mp3");
    EXPECT_EQ(loadMediaIndex(root, cache, MediaIndexMode::TrustCache, {}).songs.size(), 2u);
    const MediaIndexLoad verified = loadMediaIndex(root, cache, MediaIndexMode::VerifyCache, {});
    EXPECT_TRUE(verified.rebuilt);
    ASSERT_EQ(verified.songs.size(), 3u);
    EXPECT_EQ(verified.songs[2].cdgPath, "");  // checked this time
    const MediaIndexLoad again = loadMediaIndex(root, cache, MediaIndexMode::VerifyCache, {});
    EXPECT_FALSE(again.rebuilt);
    EXPECT_EQ(again.songs, verified.songs);
    EXPECT_TRUE(loadMediaIndex(root, cache, MediaIndexMode::RebuildCache, {}).rebuilt);

    // A listed folder that is gone is refused even by a trusted load.
    fs::remove_all(root / "Abba");
    const MediaIndexLoad afterRemoval = loadMediaIndex(root, cache, MediaIndexMode::TrustCache, {});
    EXPECT_TRUE(afterRemoval.rebuilt);
    EXPECT_EQ(afterRemoval.songs.size(), 1u);

    // The cache of another folder is never used for this one.
    dir.write("other/Other - Song.mp3");
    const MediaIndexLoad other = loadMediaIndex(dir / "other", cache, MediaIndexMode::TrustCache, {});
    EXPECT_TRUE(other.rebuilt);
    EXPECT_EQ(other.songs.size(), 1u);

    // Without a cache path nothing is read or written.
    const MediaIndexLoad uncached = loadMediaIndex(root, "", MediaIndexMode::TrustCache, {});
    EXPECT_TRUE(uncached.rebuilt);
    EXPECT_EQ(uncached.songs.size(), 1u);
}

TEST(MediaIndexLoad, RefusesARootThatIsNoFolder) {
    test::TempDir dir;
    const auto file = dir.write("song.mp3");
    const auto missing = scanFailure([&] { loadMediaIndex(dir / "absent", dir / "c.tsv", MediaIndexMode::TrustCache, {}); });
    EXPECT_EQ(missing.text, "Could not resolve media folder");
    EXPECT_EQ(missing.code, std::make_error_code(std::errc::no_such_file_or_directory));
    const auto notFolder = scanFailure([&] { loadMediaIndex(file, dir / "c.tsv", MediaIndexMode::VerifyCache, {}); });
    EXPECT_EQ(notFolder.text, "Media folder is not a directory");
    EXPECT_EQ(notFolder.path, file.string());
    EXPECT_EQ(notFolder.code, std::make_error_code(std::errc::io_error));
    EXPECT_FALSE(fs::exists(dir / "c.tsv"));
}

}  // namespace
}  // namespace tamo::core
