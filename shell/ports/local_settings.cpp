#include "local_settings.h"

#include <charconv>
#include <cmath>

namespace tamo::shell {

std::optional<std::string> localSettingText(const std::optional<LocalSettingValue>& value) {
    if (!value) return std::nullopt;
    if (const auto* text = std::get_if<std::string>(&*value)) return *text;
    return std::nullopt;
}

std::optional<bool> localSettingBool(const std::optional<LocalSettingValue>& value) {
    if (!value) return std::nullopt;
    if (const auto* flag = std::get_if<bool>(&*value)) return *flag;
    if (const auto* text = std::get_if<std::string>(&*value)) {
        if (*text == "true") return true;
        if (*text == "false") return false;
    }
    return std::nullopt;
}

std::optional<double> localSettingNumber(const std::optional<LocalSettingValue>& value) {
    if (!value) return std::nullopt;
    if (const auto* number = std::get_if<double>(&*value)) {
        if (std::isfinite(*number)) return *number;
        return std::nullopt;
    }
    if (const auto* text = std::get_if<std::string>(&*value)) {
        double parsed = 0;
        const char* end = text->data() + text->size();
        const auto result = std::from_chars(text->data(), end, parsed);
        if (!text->empty() && result.ec == std::errc() && result.ptr == end && std::isfinite(parsed)) return parsed;
    }
    return std::nullopt;
}

}  // namespace tamo::shell
