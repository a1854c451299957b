#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tamo::core {

// Letters are symbols 0 to 25, digits 26 to 35; capitals fold to small
// letters. Every other byte, UTF-8 included, is outside the alphabet.
inline constexpr int kWordAlphabetSize = 36;

constexpr std::array<std::int8_t, 256> makeWordSymbolTable() {
    std::array<std::int8_t, 256> table{};
    for (int i = 0; i < 256; ++i) {
        std::int8_t symbol = -1;
        if (i >= 'a' && i <= 'z') symbol = static_cast<std::int8_t>(i - 'a');
        if (i >= 'A' && i <= 'Z') symbol = static_cast<std::int8_t>(i - 'A');
        if (i >= '0' && i <= '9') symbol = static_cast<std::int8_t>(26 + i - '0');
        table[static_cast<std::size_t>(i)] = symbol;
    }
    return table;
}
inline constexpr std::array<std::int8_t, 256> kWordSymbols = makeWordSymbolTable();

// The symbol of a byte, or -1 outside the alphabet.
constexpr int wordSymbol(char byte) {
    return kWordSymbols[static_cast<unsigned char>(byte)];
}

// Aho-Corasick automaton over the 36-symbol alphabet with a full goto table,
// so a walk never backtracks and costs the same whatever the word count.
// Immutable once built; any number of threads may scan at once.
class WordAutomaton {
public:
    // Word i of words reports as output i. Throws std::invalid_argument with
    // "Common-cache word is not ASCII alphanumeric" for an empty word or one
    // holding a byte outside the alphabet.
    explicit WordAutomaton(const std::vector<std::string>& words);

    std::size_t stateCount() const { return states_.size(); }

    // Calls report(wordIndex) for every occurrence of every word inside the
    // runs of letters and digits of text; a byte outside the alphabet ends
    // the run and returns the walk to the root.
    template <typename Report>
    void scan(std::string_view text, Report&& report) const {
        std::int32_t state = 0;
        for (const char byte : text) {
            const int symbol = wordSymbol(byte);
            if (symbol < 0) {
                state = 0;
                continue;
            }
            state = states_[static_cast<std::size_t>(state)].next[static_cast<std::size_t>(symbol)];
            const State& current = states_[static_cast<std::size_t>(state)];
            if (current.output >= 0) report(current.output);
            for (std::int32_t link = current.dictionary; link >= 0;
                 link = states_[static_cast<std::size_t>(link)].dictionary) {
                report(states_[static_cast<std::size_t>(link)].output);
            }
        }
    }

private:
    // 39 signed 32-bit values; a negative value means none.
    struct State {
        std::array<std::int32_t, kWordAlphabetSize> next;
        std::int32_t failure = 0;
        std::int32_t output = -1;
        std::int32_t dictionary = -1;
    };

    std::vector<State> states_;
};

}  // namespace tamo::core
