#include "operation_request.h"

#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace tamo::shell {
namespace {

using Json = nlohmann::ordered_json;

// A named string: absent gives the fallback, any other type is an error,
// as a strict JSON object reader would have it.
std::string namedString(const Json& object, const char* key, std::string fallback) {
    const auto it = object.find(key);
    if (it == object.end()) return fallback;
    if (!it->is_string()) throw std::invalid_argument(std::string("JSON value is not a string: ") + key);
    return it->get<std::string>();
}

std::string numberText(double value) {
    if (std::isfinite(value) && value == std::floor(value) && value >= -2147483648.0 && value <= 2147483647.0)
        return std::to_string(static_cast<std::int64_t>(value));
    char buffer[512];
    std::snprintf(buffer, sizeof buffer, "%f", value);
    return buffer;
}

}  // namespace

std::optional<core::OperationRequest> operationRequestFromJson(std::string_view body) {
    const Json request = Json::parse(body.begin(), body.end());
    if (!request.is_object()) throw std::invalid_argument("Request body is not a JSON object");

    const std::string name = namedString(request, "name", "");
    core::OperationRequest result;
    result.name = namedString(request, "operation", name);
    if (result.name.empty()) return std::nullopt;

    const auto nested = request.find("parameters");
    const Json& source = nested != request.end() && nested->is_object() ? *nested : request;
    for (const auto& [key, value] : source.items()) {
        if (key == "operation" || key == "name" || key == "parameters") continue;
        if (value.is_object() || value.is_array()) continue;
        std::string text;
        if (value.is_string()) {
            text = value.get<std::string>();
        } else if (value.is_boolean()) {
            text = value.get<bool>() ? "true" : "false";
        } else if (value.is_null()) {
            text.clear();
        } else {
            text = numberText(value.get<double>());
        }
        result.parameters[key] = std::move(text);
    }
    return result;
}

OperationReply runOperationBody(core::EventCore& core, core::OperatorHistory* history, std::string_view body) {
    const std::optional<core::OperationRequest> request = operationRequestFromJson(body);
    if (!request) return {400, std::string(kMissingOperationBody), false};
    const core::OperationResponse response = core::dispatchOperation(core, history, *request);
    const bool readOnly = request->name == "state" || request->name == "operations" || request->name == "search";
    return {response.httpStatus, response.body, response.status == "ok" && !readOnly};
}

}  // namespace tamo::shell
