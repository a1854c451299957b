#include "appearance_settings.h"

#include "fixed_paths.h"
#include "json_document.h"
#include "replace_commit.h"

#include <system_error>

namespace tamo::shell {
namespace {

namespace fs = std::filesystem;

const JsonDocument* valueAt(const JsonDocument& object, const char* key) {
    const auto it = object.find(key);
    return it == object.end() ? nullptr : &*it;
}

void readFlag(const JsonDocument& object, const char* key, std::optional<bool>& out) {
    const JsonDocument* value = valueAt(object, key);
    if (value != nullptr && value->is_boolean()) out = value->get<bool>();
}

template <typename Accept>
void readWord(const JsonDocument& object, const char* key, Accept accept, std::string& out) {
    const JsonDocument* value = valueAt(object, key);
    if (value != nullptr && value->is_string() && accept(value->get_ref<const std::string&>()))
        out = value->get<std::string>();
}

}  // namespace

bool loadAppearanceSettings(const fs::path& path, AppearanceSettings& settings) {
    try {
        const JsonFile file = readJsonObjectFile(path, kMaxAppearanceFileBytes);
        if (file.state != JsonFileState::Usable || !isSettingsVersionOne(file.document)) return false;
        const JsonDocument& document = file.document;
        AppearanceSettings read = settings;
        readWord(document, "theme", isThemeWord, read.theme);
        readWord(document, "accent", isAccentWord, read.accent);
        readWord(document, "skinPreset", isSkinPresetWord, read.skinPreset);
        if (const JsonDocument* skin = valueAt(document, "skin"); skin != nullptr && skin->is_object()) {
            for (const auto& [key, value] : skin->items()) {
                if (isSkinColourKey(key) && value.is_string() && isSkinColour(value.get_ref<const std::string&>()))
                    read.skin[key] = value.get<std::string>();
            }
        }
        readFlag(document, "doubleClickRequiredForPlayStop", read.doubleClickRequiredForPlayStop);
        readFlag(document, "moveSingerToBottomWhenLive", read.moveSingerToBottomWhenLive);
        readFlag(document, "proMode", read.proMode);
        readFlag(document, "backspaceDeletesQueueItem", read.backspaceDeletesQueueItem);
        if (const JsonDocument* size = valueAt(document, "applicationFontSize"); size != nullptr && size->is_number()) {
            if (const auto clamped = clampFontSize(size->get<double>())) read.applicationFontSize = *clamped;
        }
        readWord(document, "commandLabelMode", isCommandLabelWord, read.commandLabelMode);
        settings = std::move(read);
        return true;
    } catch (...) {
        return false;
    }
}

bool saveAppearanceSettings(const fs::path& path, const AppearanceSettings& settings) {
    try {
        const JsonFile existing = readJsonObjectFile(path, kMaxAppearanceFileBytes);
        if (existing.state == JsonFileState::Unusable) return false;
        JsonDocument document = JsonDocument::object();
        document["version"] = 1;
        document["theme"] = settings.theme;
        document["accent"] = settings.accent;
        document["skinPreset"] = settings.skinPreset;
        JsonDocument skin = JsonDocument::object();
        for (const auto& [key, colour] : settings.skin) skin[key] = colour;
        document["skin"] = std::move(skin);
        const auto flag = [&](const char* key, const std::optional<bool>& value) {
            if (value) document[key] = *value;
        };
        flag("doubleClickRequiredForPlayStop", settings.doubleClickRequiredForPlayStop);
        flag("moveSingerToBottomWhenLive", settings.moveSingerToBottomWhenLive);
        flag("proMode", settings.proMode);
        flag("backspaceDeletesQueueItem", settings.backspaceDeletesQueueItem);
        if (settings.applicationFontSize) document["applicationFontSize"] = *settings.applicationFontSize;
        document["commandLabelMode"] = settings.commandLabelMode;
        // Compact: the file must stay within 1024 bytes.
        const std::string text = document.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
        if (text.empty() || text.size() > kMaxAppearanceFileBytes) return false;
        std::error_code error;
        fs::create_directories(path.parent_path(), error);
        if (error) return false;
        return core::replaceFileVerified(path, text, kMaxAppearanceFileBytes);
    } catch (...) {
        return false;
    }
}

bool loadAppearanceSettings(AppearanceSettings& settings) {
    return loadAppearanceSettings(core::appearanceSettingsPath(), settings);
}
bool saveAppearanceSettings(const AppearanceSettings& settings) {
    return saveAppearanceSettings(core::appearanceSettingsPath(), settings);
}

}  // namespace tamo::shell
