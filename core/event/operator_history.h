#pragma once

#include "event_core.h"
#include "operator_snapshot.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace tamo::core {

// One link of a singly linked list: the id that follows `id` (0 = end of
// list; `id` 0 = the head). Absent when `id` is not in the list.
struct LinkChange {
    std::int32_t id = 0;
    std::optional<std::int32_t> before;
    std::optional<std::int32_t> after;
};

struct SingerChange {
    std::int32_t id = 0;
    std::optional<Singer> before;
    std::optional<Singer> after;
};

struct QueueChange {
    std::int32_t id = 0;
    std::optional<QueueRef> before;
    std::optional<QueueRef> after;
};

// What one operator action changed, as edits of the two lists.
struct OperatorStep {
    std::vector<LinkChange> singerLinks;
    std::vector<SingerChange> singerChanges;
    std::vector<LinkChange> queueLinks;
    std::vector<QueueChange> queueChanges;
    CurrentRef currentBefore;
    CurrentRef currentAfter;
    bool currentChanged = false;
};

// Undo and redo of operator actions as small deltas. A step applies only to
// the exact state it was recorded against; any change made behind its back
// empties the stacks instead of guessing. UI thread only, beside EventCore.
class OperatorHistory {
public:
    OperatorHistory();

    bool begin(EventCore& core);
    bool commit(EventCore& core);
    void cancel();
    bool undo(EventCore& core);
    bool redo(EventCore& core);
    void clear();

    bool isTransactionOpen() const { return transaction_.has_value(); }
    std::size_t undoCount() const { return undo_.size(); }
    std::size_t redoCount() const { return redo_.size(); }
    std::uint64_t deltaBytes() const;
    std::uint64_t residentBytes() const;

private:
    // Forgets every step and takes `snapshot` as the state the engine trusts.
    void resetTo(OperatorSnapshot snapshot);
    // Undo when `undoing`, else redo: moves one step between the stacks.
    bool replay(EventCore& core, bool undoing);

    std::uint64_t rollingLimit_ = 512;
    // Estimated bytes that the undo steps may hold in all. Tests lower it
    // through OperatorHistoryTestAccess instead of building 128 MiB of names.
    std::uint64_t byteLimit_ = 134217728;
    friend struct OperatorHistoryTestAccess;
    std::vector<OperatorStep> undo_;
    std::vector<OperatorStep> redo_;
    std::optional<OperatorSnapshot> transaction_;
    std::optional<OperatorSnapshot> baseline_;
};

}  // namespace tamo::core
