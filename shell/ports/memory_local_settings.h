#pragma once

#include "local_settings.h"

#include <map>
#include <string>

namespace tamo::shell {

// LocalSettings held in memory: the store of tests and of runs that must not
// leave anything behind. refuseWrites makes every write fail, the way a full
// or locked platform store does.
class MemoryLocalSettings final : public LocalSettings {
public:
    std::optional<LocalSettingValue> readLocalSetting(std::string_view key) const override;
    bool writeLocalSetting(std::string_view key, const LocalSettingValue& value) override;

    bool refuseWrites = false;
    std::map<std::string, LocalSettingValue, std::less<>> values;
};

}  // namespace tamo::shell
