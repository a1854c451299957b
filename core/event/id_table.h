#pragma once

#include "fnv1a.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace tamo::core {

// FNV-1a over the four bytes of an id, lowest byte first.
constexpr std::uint64_t hashId(std::int32_t id) {
    const auto bits = static_cast<std::uint32_t>(id);
    const char bytes[4] = {static_cast<char>(bits & 0xFFU), static_cast<char>((bits >> 8) & 0xFFU),
                           static_cast<char>((bits >> 16) & 0xFFU), static_cast<char>(bits >> 24)};
    return fnv1a(std::string_view(bytes, 4));
}

// A flat map from id to a small Value for the undo engine, which keys up to
// a hundred thousand ids per call: one allocation of compact slots and
// linear probing instead of a node per id. Keys are never removed. Every
// 32-bit value is a valid key: the one that marks an empty slot lives
// beside the array.
template <class Value>
class IdTable {
public:
    explicit IdTable(std::size_t expectedKeys = 0) { allocate(expectedKeys); }

    Value* find(std::int32_t id) {
        if (id == kEmpty) return spare_ ? &*spare_ : nullptr;
        for (std::size_t at = home(id);; at = (at + 1) & mask_) {
            Slot& slot = slots_[at];
            if (slot.id == id) return &slot.value;
            if (slot.id == kEmpty) return nullptr;
        }
    }
    const Value* find(std::int32_t id) const { return const_cast<IdTable*>(this)->find(id); }

    // The value under `id`, default-made when new, and whether it is new.
    // A pointer stays good until the next insertion.
    std::pair<Value*, bool> insert(std::int32_t id) {
        if (id == kEmpty) {
            const bool inserted = !spare_.has_value();
            if (inserted) spare_.emplace();
            return {&*spare_, inserted};
        }
        if ((used_ + 1) * 2 > slots_.size()) grow();
        for (std::size_t at = home(id);; at = (at + 1) & mask_) {
            Slot& slot = slots_[at];
            if (slot.id == id) return {&slot.value, false};
            if (slot.id == kEmpty) {
                slot.id = id;
                ++used_;
                return {&slot.value, true};
            }
        }
    }

private:
    static constexpr std::int32_t kEmpty = std::numeric_limits<std::int32_t>::min();

    struct Slot {
        std::int32_t id = kEmpty;
        Value value{};
    };

    std::size_t home(std::int32_t id) const {
        const std::uint64_t hash = hashId(id);
        // FNV-1a's low bits mix weakly; fold the high half in before masking.
        return static_cast<std::size_t>(hash ^ (hash >> 29)) & mask_;
    }

    void allocate(std::size_t expectedKeys) {
        std::size_t capacity = 16;
        while (capacity < expectedKeys * 2) capacity *= 2;
        slots_.assign(capacity, Slot{});
        mask_ = capacity - 1;
        used_ = 0;
    }

    void grow() {
        std::vector<Slot> old = std::move(slots_);
        allocate(old.size());
        for (Slot& slot : old) {
            if (slot.id != kEmpty) *insert(slot.id).first = std::move(slot.value);
        }
    }

    std::vector<Slot> slots_;
    std::optional<Value> spare_;
    std::size_t mask_ = 0;
    std::size_t used_ = 0;
};

}  // namespace tamo::core
