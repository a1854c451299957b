#include "operation_parameters.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <stdexcept>

namespace tamo::core {

const std::string& readStringParameter(const OperationParameters& parameters, const std::string& name) {
    const auto it = parameters.find(name);
    if (it == parameters.end()) throw std::invalid_argument("Missing parameter: " + name);
    if (it->second.size() > kMaxParameterBytes) throw std::invalid_argument("Parameter is too large: " + name);
    return it->second;
}

std::int32_t readIntegerParameter(const OperationParameters& parameters, const std::string& name) {
    const std::string& text = readStringParameter(parameters, name);
    std::size_t i = 0;
    const bool negative = !text.empty() && text[0] == '-';
    if (negative) i = 1;
    if (i == text.size()) throw std::invalid_argument("Invalid integer parameter: " + name);
    std::int64_t value = 0;
    for (; i < text.size(); ++i) {
        const char c = text[i];
        if (c < '0' || c > '9') throw std::invalid_argument("Invalid integer parameter: " + name);
        value = value * 10 + (c - '0');
        if (value > 2147483648LL) throw std::invalid_argument("Invalid integer parameter: " + name);
    }
    if (negative) value = -value;
    if (value > 2147483647LL) throw std::invalid_argument("Invalid integer parameter: " + name);
    return static_cast<std::int32_t>(value);
}

std::int32_t readOptionalIntegerParameter(const OperationParameters& parameters, const std::string& name,
                                          std::int32_t fallback) {
    if (!parameters.contains(name)) return fallback;
    return readIntegerParameter(parameters, name);
}

double readNumberParameter(const OperationParameters& parameters, const std::string& name) {
    const std::string& text = readStringParameter(parameters, name);
    if (text.empty()) throw std::invalid_argument("Invalid number parameter: " + name);
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    if (end != text.c_str() + text.size() || !std::isfinite(value))
        throw std::invalid_argument("Invalid number parameter: " + name);
    return value;
}

}  // namespace tamo::core
