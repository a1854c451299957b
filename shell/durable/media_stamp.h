#pragma once

#include <string>
#include <string_view>
#include <unordered_map>

namespace tamo::shell {

// Size and last-write time of a media file as decimal text, the proof that a
// queued file is still the one the singer asked for. The time is in 100 ns
// ticks since the Unix epoch. Both are empty when the path (after following
// links) is no regular file or can't be looked at.
struct MediaStamp {
    std::string size;
    std::string modified;
};

MediaStamp lookupMediaStamp(std::string_view path);

// One lookup per media path for the length of one save or one read: the same
// song is often queued, current and in history many times over.
class MediaStampCache {
public:
    const MediaStamp& stampOf(std::string_view path);

private:
    std::unordered_map<std::string, MediaStamp> stamps_;
};

}  // namespace tamo::shell
