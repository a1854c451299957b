#include "settings_snapshot.h"

#include <array>
#include <cmath>

namespace tamo::shell {
namespace {

template <std::size_t N>
bool oneOf(std::string_view word, const std::array<std::string_view, N>& words) {
    for (const std::string_view candidate : words) {
        if (word == candidate) return true;
    }
    return false;
}

std::optional<int> roundAndClamp(double value, int lowest, int highest) {
    if (!std::isfinite(value)) return std::nullopt;
    const double rounded = std::round(value);
    if (rounded < lowest) return lowest;
    if (rounded > highest) return highest;
    return static_cast<int>(rounded);
}

}  // namespace

bool isThemeWord(std::string_view word) {
    return oneOf(word, std::array<std::string_view, 3>{"system", "light", "dark"});
}
bool isAccentWord(std::string_view word) {
    return oneOf(word, std::array<std::string_view, 3>{"blue", "indigo", "teal"});
}
bool isSkinPresetWord(std::string_view word) {
    return oneOf(word, std::array<std::string_view, 4>{"default", "midnight", "stage", "custom"});
}
bool isCommandLabelWord(std::string_view word) {
    return oneOf(word, std::array<std::string_view, 3>{"text", "icon", "both"});
}
bool isSkinColourKey(std::string_view key) {
    return oneOf(key, std::array<std::string_view, 7>{"canvas", "surface", "raised", "border", "textPrimary",
                                                     "textSecondary", "accent"});
}

bool isSkinColour(std::string_view text) {
    if (text.size() != 7 || text[0] != '#') return false;
    for (std::size_t i = 1; i < text.size(); ++i) {
        const char c = text[i];
        const bool hex = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
        if (!hex) return false;
    }
    return true;
}

std::optional<int> clampFontSize(double value) { return roundAndClamp(value, 12, 30); }
std::optional<double> clampMusicVolume(double value) {
    if (!std::isfinite(value)) return std::nullopt;
    return std::fmin(1.0, std::fmax(0.0, value));
}
std::optional<int> clampCommonFilenameWords(double value) { return roundAndClamp(value, 100, 50000); }
std::optional<int> clampRemotePort(double value) { return roundAndClamp(value, 1024, 65535); }

}  // namespace tamo::shell
