#pragma once

#include "local_settings.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>

namespace tamo::shell {

inline constexpr std::uint64_t kMaxLocalSettingsFileBytes = 0x100000;

// LocalSettings kept in one JSON file, for the console tools (the window uses
// the platform's store). Values are read once when the object is made; each
// write replaces the file through a verified temporary. A file that exists
// but can't be read is never overwritten: every write then fails.
class FileLocalSettings final : public LocalSettings {
public:
    explicit FileLocalSettings(std::filesystem::path path);

    std::optional<LocalSettingValue> readLocalSetting(std::string_view key) const override;
    bool writeLocalSetting(std::string_view key, const LocalSettingValue& value) override;

    // "<data root>/local-settings.json"; empty without a data root.
    static std::filesystem::path standardPath();

private:
    std::filesystem::path path_;
    std::map<std::string, LocalSettingValue, std::less<>> values_;
    bool writable_ = false;
};

}  // namespace tamo::shell
