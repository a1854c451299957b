#include "file_local_settings.h"

#include "fixed_paths.h"
#include "json_document.h"
#include "replace_commit.h"

#include <system_error>

namespace tamo::shell {

namespace fs = std::filesystem;

FileLocalSettings::FileLocalSettings(fs::path path) : path_(std::move(path)) {
    const JsonFile file = readJsonObjectFile(path_, kMaxLocalSettingsFileBytes);
    writable_ = !path_.empty() && file.state != JsonFileState::Unusable;
    if (file.state != JsonFileState::Usable) return;
    for (const auto& [key, value] : file.document.items()) {
        if (value.is_string()) values_.insert_or_assign(key, LocalSettingValue(value.get<std::string>()));
        else if (value.is_boolean()) values_.insert_or_assign(key, LocalSettingValue(value.get<bool>()));
        else if (value.is_number()) values_.insert_or_assign(key, LocalSettingValue(value.get<double>()));
    }
}

fs::path FileLocalSettings::standardPath() {
    const fs::path root = core::dataRootPath();
    return root.empty() ? fs::path() : root / "local-settings.json";
}

std::optional<LocalSettingValue> FileLocalSettings::readLocalSetting(std::string_view key) const {
    const auto it = values_.find(key);
    if (it == values_.end()) return std::nullopt;
    return it->second;
}

bool FileLocalSettings::writeLocalSetting(std::string_view key, const LocalSettingValue& value) {
    if (!writable_) return false;
    try {
        auto next = values_;
        next.insert_or_assign(std::string(key), value);
        JsonDocument document = JsonDocument::object();
        for (const auto& [name, stored] : next) {
            std::visit([&](const auto& v) { document[name] = v; }, stored);
        }
        const std::string text = dumpJsonDocument(document);
        if (text.empty()) return false;
        std::error_code error;
        fs::create_directories(path_.parent_path(), error);
        if (error || !core::replaceFileVerified(path_, text, kMaxLocalSettingsFileBytes)) return false;
        values_ = std::move(next);
        return true;
    } catch (...) {
        return false;
    }
}

}  // namespace tamo::shell
