#include "media_stamp.h"

#include <sys/stat.h>

#include <cstdint>
#include <string>

namespace tamo::shell {

MediaStamp lookupMediaStamp(std::string_view path) {
    const std::string text(path);
    struct stat status {};
    if (text.empty() || text.find('\0') != std::string::npos || ::stat(text.c_str(), &status) != 0 ||
        !S_ISREG(status.st_mode))
        return {};
    const std::int64_t ticks = static_cast<std::int64_t>(status.st_mtim.tv_sec) * 10000000 +
                               static_cast<std::int64_t>(status.st_mtim.tv_nsec) / 100;
    return MediaStamp{std::to_string(static_cast<std::uint64_t>(status.st_size)), std::to_string(ticks)};
}

const MediaStamp& MediaStampCache::stampOf(std::string_view path) {
    const std::string key(path);
    auto it = stamps_.find(key);
    if (it == stamps_.end()) it = stamps_.emplace(key, lookupMediaStamp(path)).first;
    return it->second;
}

}  // namespace tamo::shell
