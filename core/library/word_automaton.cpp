#include "word_automaton.h"

#include <stdexcept>

namespace tamo::core {
namespace {

constexpr std::size_t kSymbols = kWordAlphabetSize;

}  // namespace

WordAutomaton::WordAutomaton(const std::vector<std::string>& words) {
    std::size_t bound = 1;
    for (const std::string& word : words) bound += word.size();
    states_.reserve(bound);

    State root;
    root.next.fill(-1);
    states_.push_back(root);

    for (std::size_t index = 0; index < words.size(); ++index) {
        const std::string& word = words[index];
        if (word.empty()) throw std::invalid_argument("Common-cache word is not ASCII alphanumeric");
        std::size_t state = 0;
        for (const char byte : word) {
            const int symbol = wordSymbol(byte);
            if (symbol < 0) throw std::invalid_argument("Common-cache word is not ASCII alphanumeric");
            std::int32_t& link = states_[state].next[static_cast<std::size_t>(symbol)];
            if (link < 0) {
                link = static_cast<std::int32_t>(states_.size());
                State fresh;
                fresh.next.fill(-1);
                states_.push_back(fresh);
            }
            state = static_cast<std::size_t>(states_[state].next[static_cast<std::size_t>(symbol)]);
        }
        states_[state].output = static_cast<std::int32_t>(index);
    }

    // Breadth-first, so that a state's failure state, being shallower, is
    // complete before the state itself is filled in.
    std::vector<std::int32_t> queue;
    queue.reserve(states_.size());
    for (std::size_t symbol = 0; symbol < kSymbols; ++symbol) {
        std::int32_t& child = states_[0].next[symbol];
        if (child < 0) {
            child = 0;
            continue;
        }
        states_[static_cast<std::size_t>(child)].failure = 0;
        queue.push_back(child);
    }
    for (std::size_t head = 0; head < queue.size(); ++head) {
        const auto state = static_cast<std::size_t>(queue[head]);
        const auto failure = static_cast<std::size_t>(states_[state].failure);
        for (std::size_t symbol = 0; symbol < kSymbols; ++symbol) {
            const std::int32_t child = states_[state].next[symbol];
            const std::int32_t fallback = states_[failure].next[symbol];
            if (child < 0) {
                states_[state].next[symbol] = fallback;
                continue;
            }
            State& node = states_[static_cast<std::size_t>(child)];
            node.failure = fallback;
            const State& target = states_[static_cast<std::size_t>(fallback)];
            node.dictionary = target.output >= 0 ? fallback : target.dictionary;
            queue.push_back(child);
        }
    }
}

}  // namespace tamo::core
