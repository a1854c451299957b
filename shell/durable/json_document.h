#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace tamo::shell {

using JsonDocument = nlohmann::ordered_json;

// What stands at a settings path, read as one JSON object.
enum class JsonFileState {
    Missing,   // nothing there: a writer may create it
    Usable,    // a plain file of 1 to maxBytes bytes holding a JSON object
    Unusable,  // anything else: a reader ignores it and a writer leaves it alone
};

struct JsonFile {
    JsonFileState state = JsonFileState::Missing;
    JsonDocument document;
};

// Reads path through the bounded reader (links, folders and devices refused)
// and parses it, with nesting kept shallow. Never throws.
JsonFile readJsonObjectFile(const std::filesystem::path& path, std::uint64_t maxBytes);

// Pretty text of a document, invalid UTF-8 replaced; empty on failure.
std::string dumpJsonDocument(const JsonDocument& document);

// A number that equals exactly 1: the only settings version this program
// understands.
bool isSettingsVersionOne(const JsonDocument& document);

}  // namespace tamo::shell
