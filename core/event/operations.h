#pragma once

#include "event_core.h"
#include "operation_parameters.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>

namespace tamo::core {

class OperatorHistory;

struct OperationRequest {
    std::string name;
    OperationParameters parameters;
};

struct OperationResponse {
    std::int32_t httpStatus = 200;
    std::string status;
    std::string message;
    // Summaries for callers inside the program; never part of `body`.
    std::unordered_map<std::string, std::string> fields;
    std::string body;
};

// The JSON remote control of the event, run on the UI thread that owns
// `core`. `history` may be null; the program always attaches one.
OperationResponse dispatchOperation(EventCore& core, OperatorHistory* history, const OperationRequest& request);

// Every name the interface advertises, in the order it is sent. Some of them
// have no handler and answer like any unknown name.
std::span<const std::string_view> operationNames();

inline constexpr std::size_t kStateListLimit = 1000;

}  // namespace tamo::core
