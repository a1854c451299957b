#include "settings_file.h"

#include "fixed_paths.h"
#include "json_document.h"
#include "replace_commit.h"

#include <system_error>

namespace tamo::shell {
namespace {

namespace fs = std::filesystem;

const JsonDocument* objectAt(const JsonDocument& document, const char* key) {
    const auto it = document.find(key);
    return it != document.end() && it->is_object() ? &*it : nullptr;
}

const JsonDocument* valueAt(const JsonDocument* object, const char* key) {
    if (object == nullptr) return nullptr;
    const auto it = object->find(key);
    return it == object->end() ? nullptr : &*it;
}

void readBool(const JsonDocument* object, const char* key, bool& out) {
    const JsonDocument* value = valueAt(object, key);
    if (value != nullptr && value->is_boolean()) out = value->get<bool>();
}

template <typename Clamp, typename Out>
void readNumber(const JsonDocument* object, const char* key, Clamp clamp, Out& out) {
    const JsonDocument* value = valueAt(object, key);
    if (value == nullptr || !value->is_number()) return;
    if (const auto clamped = clamp(value->get<double>())) out = *clamped;
}

template <typename Accept>
void readWord(const JsonDocument* object, const char* key, Accept accept, std::string& out) {
    const JsonDocument* value = valueAt(object, key);
    if (value != nullptr && value->is_string() && accept(value->get_ref<const std::string&>()))
        out = value->get<std::string>();
}

// The object under key, made an object if it was anything else.
JsonDocument& objectFor(JsonDocument& document, const char* key) {
    JsonDocument& value = document[key];
    if (!value.is_object()) value = JsonDocument::object();
    return value;
}

// The document a writer starts from: the existing one, or a new one when
// there is no file. Nothing when the file is there but not ours to replace.
std::optional<JsonDocument> documentToUpdate(const fs::path& path) {
    JsonFile file = readJsonObjectFile(path, kMaxSettingsFileBytes);
    if (file.state == JsonFileState::Missing) return JsonDocument::object();
    if (file.state != JsonFileState::Usable || !isSettingsVersionOne(file.document)) return std::nullopt;
    return std::move(file.document);
}

bool commitDocument(const fs::path& path, JsonDocument& document) {
    document["version"] = 1;
    const std::string text = dumpJsonDocument(document);
    if (text.empty() || text.size() > kMaxSettingsFileBytes) return false;
    std::error_code error;
    fs::create_directories(path.parent_path(), error);
    if (error) return false;
    return core::replaceFileVerified(path, text, kMaxSettingsFileBytes);
}

}  // namespace

bool loadSettingsFile(const fs::path& path, SettingsSnapshot& settings) {
    try {
        const JsonFile file = readJsonObjectFile(path, kMaxSettingsFileBytes);
        if (file.state != JsonFileState::Usable || !isSettingsVersionOne(file.document)) return false;
        const JsonDocument& document = file.document;
        SettingsSnapshot read = settings;

        const JsonDocument* media = objectAt(document, "media");
        if (const JsonDocument* folder = valueAt(media, "folder"); folder != nullptr && folder->is_string())
            read.mediaFolder = folder->get<std::string>();

        const JsonDocument* application = objectAt(document, "application");
        readNumber(application, "fontSize", clampFontSize, read.fontSize);
        readWord(application, "commandLabels", isCommandLabelWord, read.commandLabels);
        readBool(application, "diagnosticsEnabled", read.diagnosticsEnabled);

        const JsonDocument* appearance = objectAt(document, "appearance");
        readWord(appearance, "theme", isThemeWord, read.theme);
        readWord(appearance, "accent", isAccentWord, read.accent);
        readWord(appearance, "skinPreset", isSkinPresetWord, read.skinPreset);
        if (const JsonDocument* skin = valueAt(appearance, "skin"); skin != nullptr && skin->is_object()) {
            for (const auto& [key, value] : skin->items()) {
                if (isSkinColourKey(key) && value.is_string() && isSkinColour(value.get_ref<const std::string&>()))
                    read.skin[key] = value.get<std::string>();
            }
        }

        const JsonDocument* playback = objectAt(document, "playback");
        readBool(playback, "doubleClickRequiredForPlayStop", read.doubleClickRequiredForPlayStop);
        readBool(playback, "moveSingerToBottomWhenLive", read.moveSingerToBottomWhenLive);
        readBool(playback, "proMode", read.proMode);
        readBool(playback, "backspaceDeletesQueueItem", read.backspaceDeletesQueueItem);
        readNumber(playback, "musicVolume", clampMusicVolume, read.musicVolume);

        readNumber(objectAt(document, "search"), "commonFilenameWords", clampCommonFilenameWords,
                   read.commonFilenameWords);

        const JsonDocument* remote = objectAt(document, "remote");
        readBool(remote, "enabled", read.remoteEnabled);
        readNumber(remote, "port", clampRemotePort, read.remotePort);

        settings = std::move(read);
        return true;
    } catch (...) {
        return false;
    }
}

bool saveSettingsFile(const fs::path& path, const SettingsSnapshot& settings) {
    try {
        std::optional<JsonDocument> document = documentToUpdate(path);
        if (!document) return false;
        JsonDocument& root = *document;
        if (!root.contains("version")) root["version"] = 1;

        objectFor(root, "media")["folder"] = settings.mediaFolder;
        JsonDocument& application = objectFor(root, "application");
        application["fontSize"] = settings.fontSize;
        application["commandLabels"] = settings.commandLabels;
        application["diagnosticsEnabled"] = settings.diagnosticsEnabled;
        JsonDocument& appearance = objectFor(root, "appearance");
        appearance["theme"] = settings.theme;
        appearance["accent"] = settings.accent;
        appearance["skinPreset"] = settings.skinPreset;
        // The colours are the snapshot's set, so one the operator no longer
        // has does not come back on the next load; other keys stay.
        JsonDocument& skin = objectFor(appearance, "skin");
        for (auto it = skin.begin(); it != skin.end();) {
            if (isSkinColourKey(it.key()) && settings.skin.count(it.key()) == 0) it = skin.erase(it);
            else ++it;
        }
        for (const auto& [key, colour] : settings.skin) skin[key] = colour;
        JsonDocument& playback = objectFor(root, "playback");
        playback["doubleClickRequiredForPlayStop"] = settings.doubleClickRequiredForPlayStop;
        playback["moveSingerToBottomWhenLive"] = settings.moveSingerToBottomWhenLive;
        playback["proMode"] = settings.proMode;
        playback["backspaceDeletesQueueItem"] = settings.backspaceDeletesQueueItem;
        playback["musicVolume"] = settings.musicVolume;
        objectFor(root, "search")["commonFilenameWords"] = settings.commonFilenameWords;
        JsonDocument& remote = objectFor(root, "remote");
        remote["enabled"] = settings.remoteEnabled;
        remote["port"] = settings.remotePort;
        return commitDocument(path, root);
    } catch (...) {
        return false;
    }
}

std::map<std::string, std::string> readDurableStrings(const fs::path& path) {
    std::map<std::string, std::string> values;
    try {
        const JsonFile file = readJsonObjectFile(path, kMaxSettingsFileBytes);
        if (file.state != JsonFileState::Usable || !isSettingsVersionOne(file.document)) return values;
        if (const JsonDocument* store = objectAt(file.document, "durableStrings")) {
            for (const auto& [key, value] : store->items()) {
                if (value.is_string()) values[key] = value.get<std::string>();
            }
        }
    } catch (...) {
        values.clear();
    }
    return values;
}

bool writeDurableStrings(const fs::path& path, const std::map<std::string, std::string>& values) {
    try {
        std::optional<JsonDocument> document = documentToUpdate(path);
        if (!document) return false;
        if (!document->contains("version")) (*document)["version"] = 1;
        JsonDocument store = JsonDocument::object();
        for (const auto& [key, value] : values) {
            if (!key.empty()) store[key] = value;
        }
        (*document)["durableStrings"] = std::move(store);
        return commitDocument(path, *document);
    } catch (...) {
        return false;
    }
}

bool loadSettingsFile(SettingsSnapshot& settings) { return loadSettingsFile(core::settingsFilePath(), settings); }
bool saveSettingsFile(const SettingsSnapshot& settings) { return saveSettingsFile(core::settingsFilePath(), settings); }
std::map<std::string, std::string> readDurableStrings() { return readDurableStrings(core::settingsFilePath()); }
bool writeDurableStrings(const std::map<std::string, std::string>& values) {
    return writeDurableStrings(core::settingsFilePath(), values);
}

}  // namespace tamo::shell
