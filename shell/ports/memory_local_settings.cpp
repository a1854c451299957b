#include "memory_local_settings.h"

namespace tamo::shell {

std::optional<LocalSettingValue> MemoryLocalSettings::readLocalSetting(std::string_view key) const {
    const auto it = values.find(key);
    if (it == values.end()) return std::nullopt;
    return it->second;
}

bool MemoryLocalSettings::writeLocalSetting(std::string_view key, const LocalSettingValue& value) {
    if (refuseWrites) return false;
    values.insert_or_assign(std::string(key), value);
    return true;
}

}  // namespace tamo::shell
