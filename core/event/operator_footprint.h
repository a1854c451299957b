#pragma once

#include "operator_history.h"

#include <cstdint>

namespace tamo::core {

// Estimated bytes held by one step or one snapshot, with fixed weights per
// element of reserved capacity so that the figure is the same on every
// platform and can be budgeted against. Sums saturate instead of wrapping.
std::uint64_t operatorStepBytes(const OperatorStep& step);
std::uint64_t operatorSnapshotBytes(const OperatorSnapshot& snapshot);

std::uint64_t saturatingAdd(std::uint64_t a, std::uint64_t b);

}  // namespace tamo::core
