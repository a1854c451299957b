#pragma once

#include "operator_history.h"

#include <vector>

namespace tamo::core {

// Undo reads a step's `after` side as what it expects and writes `before`;
// redo the other way round.
enum class StepDirection { Undo, Redo };

// Records how `before` became `after`: value changes per id, and the order as
// edits of a singly linked list (id -> the id behind it, 0 for the head and
// for the end). Lists with the same ids in the same order need no links and
// no hash tables. Otherwise every id must be positive and unique, or this
// throws std::invalid_argument.
void buildListDelta(const std::vector<Singer>& before, const std::vector<Singer>& after,
                    std::vector<LinkChange>& links, std::vector<SingerChange>& changes);
void buildListDelta(const std::vector<QueueRef>& before, const std::vector<QueueRef>& after,
                    std::vector<LinkChange>& links, std::vector<QueueChange>& changes);

// The whole step between two snapshots. Throws as buildListDelta does.
OperatorStep buildOperatorStep(const OperatorSnapshot& before, const OperatorSnapshot& after);

// Replays one half of a step onto `present`, writing the result to `out`.
// False when `present` is not exactly the list the step expects, or when the
// result would not be one clean list; `out` is then unspecified. Throws
// std::invalid_argument when `present` holds an id below 1 or a repeated id.
bool applyListDelta(const std::vector<Singer>& present, const std::vector<LinkChange>& links,
                    const std::vector<SingerChange>& changes, StepDirection direction, std::vector<Singer>& out);
bool applyListDelta(const std::vector<QueueRef>& present, const std::vector<LinkChange>& links,
                    const std::vector<QueueChange>& changes, StepDirection direction, std::vector<QueueRef>& out);

}  // namespace tamo::core
