#include "operator_history.h"

#include "operator_delta.h"
#include "operator_footprint.h"

#include <algorithm>

namespace tamo::core {
namespace {

bool sameState(const OperatorSnapshot& a, const OperatorSnapshot& b) {
    return sameOperatorCounters(a, b) && sameOperatorContent(a, b);
}

// Ids never fall: when the event was replaced from outside with lower
// counters, the core is raised to `reference`'s before anything is recorded,
// and `snapshot` is updated to match.
bool syncCounters(EventCore& core, OperatorSnapshot& snapshot, const OperatorSnapshot& reference) {
    if (snapshot.nextSingerId >= reference.nextSingerId && snapshot.nextQueueId >= reference.nextQueueId) return true;
    const std::int32_t singerId = snapshot.nextSingerId;
    const std::int32_t queueId = snapshot.nextQueueId;
    snapshot.nextSingerId = std::max(singerId, reference.nextSingerId);
    snapshot.nextQueueId = std::max(queueId, reference.nextQueueId);
    if (core.applyOperatorSnapshot(snapshot)) return true;
    snapshot.nextSingerId = singerId;
    snapshot.nextQueueId = queueId;
    return false;
}

std::uint64_t stackBytes(const std::vector<OperatorStep>& steps) {
    std::uint64_t bytes = 0;
    for (const OperatorStep& step : steps) bytes = saturatingAdd(bytes, operatorStepBytes(step));
    return bytes;
}

}  // namespace

OperatorHistory::OperatorHistory() {
    undo_.reserve(rollingLimit_);
    redo_.reserve(rollingLimit_);
}

void OperatorHistory::resetTo(OperatorSnapshot snapshot) {
    undo_.clear();
    redo_.clear();
    transaction_.reset();
    baseline_ = std::move(snapshot);
}

bool OperatorHistory::begin(EventCore& core) {
    if (transaction_) return false;
    OperatorSnapshot start = core.operatorSnapshot();
    if (!baseline_) {
        baseline_ = start;
    } else if (!sameState(start, *baseline_)) {
        if (!syncCounters(core, start, *baseline_)) return false;
        resetTo(start);
    }
    transaction_ = std::move(start);
    return true;
}

bool OperatorHistory::commit(EventCore& core) {
    if (!transaction_) return false;
    OperatorSnapshot after = core.operatorSnapshot();
    if (!syncCounters(core, after, *transaction_)) return false;
    if (sameOperatorContent(*transaction_, after)) {
        transaction_.reset();
        baseline_ = std::move(after);
        return false;
    }

    OperatorStep step = buildOperatorStep(*transaction_, after);
    redo_.clear();
    if (undo_.size() >= rollingLimit_) undo_.erase(undo_.begin());
    undo_.push_back(std::move(step));

    // Keep the newest step even when it alone is over budget, so that the
    // last action can always be undone; then older ones while they fit.
    std::size_t keepFrom = undo_.size() - 1;
    std::uint64_t kept = operatorStepBytes(undo_.back());
    while (keepFrom > 0) {
        const std::uint64_t more = saturatingAdd(kept, operatorStepBytes(undo_[keepFrom - 1]));
        if (more > byteLimit_) break;
        kept = more;
        --keepFrom;
    }
    undo_.erase(undo_.begin(), undo_.begin() + static_cast<std::ptrdiff_t>(keepFrom));

    transaction_.reset();
    baseline_ = std::move(after);
    return true;
}

void OperatorHistory::cancel() { transaction_.reset(); }

void OperatorHistory::clear() {
    undo_.clear();
    redo_.clear();
    transaction_.reset();
    baseline_.reset();
}

bool OperatorHistory::undo(EventCore& core) { return replay(core, true); }

bool OperatorHistory::redo(EventCore& core) { return replay(core, false); }

bool OperatorHistory::replay(EventCore& core, bool undoing) {
    std::vector<OperatorStep>& from = undoing ? undo_ : redo_;
    std::vector<OperatorStep>& to = undoing ? redo_ : undo_;
    if (transaction_ || from.empty()) return false;
    const OperatorStep& step = from.back();
    // Changing the current performance under a running player would pull
    // the media away from the singer on stage.
    if (step.currentChanged && core.playbackStatus() != PlaybackStatus::Stopped) return false;

    OperatorSnapshot present = core.operatorSnapshot();
    if (!baseline_) {
        resetTo(std::move(present));
        return false;
    }
    if (!sameState(present, *baseline_)) {
        if (syncCounters(core, present, *baseline_)) resetTo(std::move(present));
        return false;
    }

    const StepDirection direction = undoing ? StepDirection::Undo : StepDirection::Redo;
    OperatorSnapshot target;
    target.nextSingerId = present.nextSingerId;
    target.nextQueueId = present.nextQueueId;
    if (!applyListDelta(present.singers, step.singerLinks, step.singerChanges, direction, target.singers) ||
        !applyListDelta(present.queue, step.queueLinks, step.queueChanges, direction, target.queue))
        return false;
    if (step.currentChanged) {
        if (present.current != (undoing ? step.currentAfter : step.currentBefore)) return false;
        target.current = undoing ? step.currentBefore : step.currentAfter;
    } else {
        target.current = present.current;
    }
    if (!core.applyOperatorSnapshot(target)) return false;

    to.push_back(std::move(from.back()));
    from.pop_back();
    baseline_ = std::move(target);
    return true;
}

std::uint64_t OperatorHistory::deltaBytes() const { return saturatingAdd(stackBytes(undo_), stackBytes(redo_)); }

std::uint64_t OperatorHistory::residentBytes() const {
    std::uint64_t bytes = deltaBytes();
    if (transaction_) bytes = saturatingAdd(bytes, operatorSnapshotBytes(*transaction_));
    if (baseline_) bytes = saturatingAdd(bytes, operatorSnapshotBytes(*baseline_));
    return bytes;
}

}  // namespace tamo::core
