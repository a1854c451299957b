#include "json_document.h"

#include "bounded_read.h"
#include "file_kind.h"
#include "json_text.h"

namespace tamo::shell {

JsonFile readJsonObjectFile(const std::filesystem::path& path, std::uint64_t maxBytes) {
    JsonFile file;
    try {
        if (path.empty()) {
            file.state = JsonFileState::Unusable;
            return file;
        }
        const core::FileKind kind = core::getFileKind(path);
        if (kind == core::FileKind::Missing) return file;
        file.state = JsonFileState::Unusable;
        if (kind != core::FileKind::RegularFile) return file;
        const std::optional<std::string> text = core::readBoundedFile(path, maxBytes);
        if (!text || !jsonNestingWithin(*text, 64)) return file;
        JsonDocument parsed = JsonDocument::parse(*text, nullptr, false);
        if (parsed.is_discarded() || !parsed.is_object()) return file;
        file.document = std::move(parsed);
        file.state = JsonFileState::Usable;
    } catch (...) {
        file.state = JsonFileState::Unusable;
        file.document = JsonDocument();
    }
    return file;
}

std::string dumpJsonDocument(const JsonDocument& document) {
    try {
        return document.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
    } catch (...) {
        return {};
    }
}

bool isSettingsVersionOne(const JsonDocument& document) {
    const auto it = document.find("version");
    return it != document.end() && it->is_number() && it->get<double>() == 1.0;
}

}  // namespace tamo::shell
