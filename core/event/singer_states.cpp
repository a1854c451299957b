#include "singer_states.h"

#include <unordered_map>

namespace tamo::core {

bool isSingerStateWord(std::string_view word) { return word == "Ready" || word == "Away" || word == "Skipped"; }

bool setSingerState(SingerStates& states, std::int32_t singerId, std::string_view word) {
    if (!isSingerStateWord(word)) return false;
    if (word == "Ready") {
        states.erase(singerId);
    } else {
        states[singerId] = std::string(word);
    }
    return true;
}

std::string_view singerStateOf(const SingerStates& states, std::int32_t singerId) {
    const auto it = states.find(singerId);
    return it == states.end() ? std::string_view("Ready") : std::string_view(it->second);
}

const QueueEntry* nextEligibleEntry(const EventCore& core, const SingerStates& states) {
    const auto& queue = core.queue();
    // One pass over the queue finds every singer's first entry, so the walk
    // stays linear however long the rotation is.
    std::unordered_map<std::int32_t, const QueueEntry*> firstEntry;
    for (const QueueEntry& entry : queue) firstEntry.try_emplace(entry.singerId, &entry);
    for (const Singer& singer : core.singers()) {
        const auto state = states.find(singer.id);
        if (state != states.end() && (state->second == "Away" || state->second == "Skipped")) continue;
        if (const auto it = firstEntry.find(singer.id); it != firstEntry.end()) return it->second;
    }
    return nullptr;
}

}  // namespace tamo::core
