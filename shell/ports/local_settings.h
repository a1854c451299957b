#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace tamo::shell {

// One value of the platform's flat settings store. Most keys hold text
// (booleans as "true"/"false", numbers as decimal text); a few older keys
// hold a typed boolean or number, and a reader must accept what it finds.
using LocalSettingValue = std::variant<std::string, bool, double>;

// The per-user key-value store that keeps what the operator changes in the
// window. UI thread only. A write that returns false left the stored value as
// it was; the caller keeps the change for the session and says so.
class LocalSettings {
public:
    virtual ~LocalSettings() = default;
    virtual std::optional<LocalSettingValue> readLocalSetting(std::string_view key) const = 0;
    virtual bool writeLocalSetting(std::string_view key, const LocalSettingValue& value) = 0;
};

// Typed views of a stored value: a string that spells the type counts too,
// since older versions stored numbers and booleans as text.
std::optional<std::string> localSettingText(const std::optional<LocalSettingValue>& value);
std::optional<bool> localSettingBool(const std::optional<LocalSettingValue>& value);
std::optional<double> localSettingNumber(const std::optional<LocalSettingValue>& value);

}  // namespace tamo::shell
