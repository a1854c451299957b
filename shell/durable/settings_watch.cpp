#include "settings_watch.h"

#include <sys/stat.h>

namespace tamo::shell {

SettingsFileStamp settingsFileStamp(const std::filesystem::path& path) {
    struct stat status {};
    if (path.empty() || ::stat(path.c_str(), &status) != 0) return {};
    return SettingsFileStamp{
        true,
        static_cast<std::int64_t>(status.st_mtim.tv_sec) * 1000000000 + static_cast<std::int64_t>(status.st_mtim.tv_nsec),
        static_cast<std::uint64_t>(status.st_size), static_cast<std::uint64_t>(status.st_ino)};
}

SettingsFileWatch::SettingsFileWatch(std::filesystem::path path) : path_(std::move(path)) { note(); }

void SettingsFileWatch::note() { seen_ = settingsFileStamp(path_); }

bool SettingsFileWatch::changed() {
    const SettingsFileStamp now = settingsFileStamp(path_);
    if (now == seen_) return false;
    seen_ = now;
    return true;
}

}  // namespace tamo::shell
