#pragma once

#include <cstdint>
#include <filesystem>

namespace tamo::shell {

// What a settings file looks like from outside: enough to notice an edit
// without reading it. A missing file is a stamp too, so creating or
// deleting the file counts as a change.
struct SettingsFileStamp {
    bool exists = false;
    std::int64_t modifiedNs = 0;
    std::uint64_t size = 0;
    std::uint64_t inode = 0;

    friend bool operator==(const SettingsFileStamp&, const SettingsFileStamp&) = default;
};

SettingsFileStamp settingsFileStamp(const std::filesystem::path& path);

// The live reload's change detection: the window notes the stamp at start
// and asks every two seconds whether it moved. An editor that saves by
// rename changes the inode even within one timestamp tick. UI thread only.
class SettingsFileWatch {
public:
    explicit SettingsFileWatch(std::filesystem::path path);
    // Takes the present stamp as the one seen.
    void note();
    // True once for each change since the last note or change.
    bool changed();

private:
    std::filesystem::path path_;
    SettingsFileStamp seen_;
};

}  // namespace tamo::shell
