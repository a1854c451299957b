#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

namespace tamo::core {

using OperationParameters = std::unordered_map<std::string, std::string>;

inline constexpr std::size_t kMaxParameterBytes = 32768;

// Readers throw std::invalid_argument with the failure text followed by the
// parameter's name; the dispatcher turns that into a 400 answer.
const std::string& readStringParameter(const OperationParameters& parameters, const std::string& name);
// Optional '-', then decimal digits only, the whole text, within 32 bits:
// no '+', no blanks, no hexadecimal.
std::int32_t readIntegerParameter(const OperationParameters& parameters, const std::string& name);
std::int32_t readOptionalIntegerParameter(const OperationParameters& parameters, const std::string& name,
                                          std::int32_t fallback);
// strtod must consume all of a non-empty text and give a finite value.
double readNumberParameter(const OperationParameters& parameters, const std::string& name);

}  // namespace tamo::core
