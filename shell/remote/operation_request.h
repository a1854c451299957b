#pragma once

#include "operations.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tamo::shell {

// A request body of POST /api/operation turned into an operation. Throws
// when the body is not a JSON object; returns nothing when it names no
// operation. `operation` wins over `name`; parameters come from the
// `parameters` object when there is one, else from the top level.
std::optional<core::OperationRequest> operationRequestFromJson(std::string_view body);

struct OperationReply {
    std::int32_t httpStatus = 200;
    std::string body;
    // True when the event may have changed and views and recovery must follow.
    bool eventChanged = false;
};

// Parses and dispatches one body. Exceptions of the parse pass on: the HTTP
// front answers them as a failed request.
OperationReply runOperationBody(core::EventCore& core, core::OperatorHistory* history, std::string_view body);

inline constexpr std::string_view kMissingOperationBody = R"({"status":"error","message":"Missing operation"})";

}  // namespace tamo::shell
