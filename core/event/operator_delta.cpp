#include "operator_delta.h"

#include "id_table.h"

#include <stdexcept>

namespace tamo::core {
namespace {

[[noreturn]] void refuseIds() {
    throw std::invalid_argument("Operator history requires unique positive IDs");
}

template <class T>
struct Node {
    const T* element = nullptr;
    std::int32_t next = 0;
};

// Id map and successor map of one list in a single table; the head's
// successor is kept apart as the list's first id.
template <class T>
IdTable<Node<T>> indexList(const std::vector<T>& list) {
    IdTable<Node<T>> table(list.size());
    for (std::size_t i = 0; i < list.size(); ++i) {
        const std::int32_t id = list[i].id;
        if (id < 1) refuseIds();
        const auto [node, inserted] = table.insert(id);
        if (!inserted) refuseIds();
        node->element = &list[i];
        node->next = i + 1 < list.size() ? list[i + 1].id : 0;
    }
    return table;
}

template <class T>
std::int32_t headOf(const std::vector<T>& list) {
    return list.empty() ? 0 : list.front().id;
}

template <class T, class Change>
void buildDelta(const std::vector<T>& before, const std::vector<T>& after, std::vector<LinkChange>& links,
                std::vector<Change>& changes) {
    links.clear();
    changes.clear();
    if (before.size() == after.size()) {
        bool sameOrder = true;
        for (std::size_t i = 0; i < before.size(); ++i) {
            if (before[i].id != after[i].id) {
                sameOrder = false;
                break;
            }
            if (!(before[i] == after[i])) changes.push_back(Change{before[i].id, before[i], after[i]});
        }
        if (sameOrder) {
            changes.shrink_to_fit();
            return;
        }
        changes.clear();
    }

    const IdTable<Node<T>> beforeMap = indexList(before);
    const IdTable<Node<T>> afterMap = indexList(after);

    // The union of ids, `before` first in its order, then what `after` adds.
    for (const T& element : before) {
        const Node<T>* later = afterMap.find(element.id);
        if (later == nullptr) {
            changes.push_back(Change{element.id, element, std::nullopt});
        } else if (!(element == *later->element)) {
            changes.push_back(Change{element.id, element, *later->element});
        }
    }
    for (const T& element : after) {
        if (beforeMap.find(element.id) == nullptr) changes.push_back(Change{element.id, std::nullopt, element});
    }

    if (headOf(before) != headOf(after)) links.push_back(LinkChange{0, headOf(before), headOf(after)});
    for (const T& element : before) {
        const std::int32_t earlierNext = beforeMap.find(element.id)->next;
        const Node<T>* later = afterMap.find(element.id);
        if (later == nullptr) {
            links.push_back(LinkChange{element.id, earlierNext, std::nullopt});
        } else if (later->next != earlierNext) {
            links.push_back(LinkChange{element.id, earlierNext, later->next});
        }
    }
    for (const T& element : after) {
        if (beforeMap.find(element.id) == nullptr) {
            links.push_back(LinkChange{element.id, std::nullopt, afterMap.find(element.id)->next});
        }
    }
    // A step's size is charged by capacity, so keep none to spare.
    links.shrink_to_fit();
    changes.shrink_to_fit();
}

template <class T>
struct ApplyNode {
    const T* element = nullptr;
    std::int32_t next = 0;
    bool hasNext = false;
    bool visited = false;
    std::uint32_t predecessors = 0;
};

template <class T>
const std::optional<T>& expectedSide(const std::optional<T>& before, const std::optional<T>& after,
                                     StepDirection direction) {
    return direction == StepDirection::Undo ? after : before;
}

template <class T>
const std::optional<T>& targetSide(const std::optional<T>& before, const std::optional<T>& after,
                                   StepDirection direction) {
    return direction == StepDirection::Undo ? before : after;
}

template <class T, class Change>
bool applyDelta(const std::vector<T>& present, const std::vector<LinkChange>& links,
                const std::vector<Change>& changes, StepDirection direction, std::vector<T>& out) {
    IdTable<ApplyNode<T>> table(present.size() + changes.size() + links.size() + 1);
    {
        ApplyNode<T>& head = *table.insert(0).first;
        head.hasNext = true;
        head.next = headOf(present);
    }
    for (std::size_t i = 0; i < present.size(); ++i) {
        const std::int32_t id = present[i].id;
        if (id < 1) refuseIds();
        const auto [node, inserted] = table.insert(id);
        if (!inserted) refuseIds();
        node->element = &present[i];
        node->hasNext = true;
        node->next = i + 1 < present.size() ? present[i + 1].id : 0;
    }
    std::size_t elementCount = present.size();
    std::size_t nextCount = present.size() + 1;

    // Everything the step expects must hold before anything is written.
    for (const Change& change : changes) {
        const std::optional<T>& expected = expectedSide(change.before, change.after, direction);
        const ApplyNode<T>* node = table.find(change.id);
        const bool held = node != nullptr && node->element != nullptr;
        if (expected ? !held || !(*node->element == *expected) : held) return false;
    }
    for (const LinkChange& link : links) {
        const std::optional<std::int32_t>& expected = expectedSide(link.before, link.after, direction);
        const ApplyNode<T>* node = table.find(link.id);
        const bool held = node != nullptr && node->hasNext;
        if (expected ? !held || node->next != *expected : held) return false;
    }

    for (const Change& change : changes) {
        const std::optional<T>& target = targetSide(change.before, change.after, direction);
        ApplyNode<T>& node = *table.insert(change.id).first;
        if (node.element != nullptr) --elementCount;
        node.element = target ? &*target : nullptr;
        if (node.element != nullptr) ++elementCount;
    }
    for (const LinkChange& link : links) {
        const std::optional<std::int32_t>& target = targetSide(link.before, link.after, direction);
        ApplyNode<T>& node = *table.insert(link.id).first;
        if (node.hasNext) --nextCount;
        node.hasNext = target.has_value();
        node.next = target.value_or(0);
        if (node.hasNext) ++nextCount;
    }

    // The edited links must again form one list through every element and
    // nothing else: one successor per element plus the head, each element
    // the successor of exactly one key.
    const ApplyNode<T>* head = table.find(0);
    if (nextCount != elementCount + 1 || head == nullptr || !head->hasNext) return false;
    bool consistent = true;
    table.forEach([&](std::int32_t id, ApplyNode<T>& node) {
        if (!node.hasNext) return;
        if (id != 0 && node.element == nullptr) consistent = false;
        if (node.next == 0) return;
        ApplyNode<T>* successor = table.find(node.next);
        if (successor == nullptr || successor->element == nullptr) {
            consistent = false;
        } else {
            ++successor->predecessors;
        }
    });
    if (!consistent) return false;
    table.forEach([&](std::int32_t, ApplyNode<T>& node) {
        if (node.element != nullptr && node.predecessors != 1) consistent = false;
    });
    if (!consistent) return false;

    out.clear();
    out.reserve(elementCount);
    for (std::int32_t id = table.find(0)->next; id != 0;) {
        ApplyNode<T>* node = table.find(id);
        if (node == nullptr || node->element == nullptr || node->visited || !node->hasNext) return false;
        node->visited = true;
        out.push_back(*node->element);
        id = node->next;
    }
    return out.size() == elementCount;
}

}  // namespace

void buildListDelta(const std::vector<Singer>& before, const std::vector<Singer>& after,
                    std::vector<LinkChange>& links, std::vector<SingerChange>& changes) {
    buildDelta(before, after, links, changes);
}

void buildListDelta(const std::vector<QueueRef>& before, const std::vector<QueueRef>& after,
                    std::vector<LinkChange>& links, std::vector<QueueChange>& changes) {
    buildDelta(before, after, links, changes);
}

OperatorStep buildOperatorStep(const OperatorSnapshot& before, const OperatorSnapshot& after) {
    OperatorStep step;
    buildListDelta(before.singers, after.singers, step.singerLinks, step.singerChanges);
    buildListDelta(before.queue, after.queue, step.queueLinks, step.queueChanges);
    step.currentBefore = before.current;
    step.currentAfter = after.current;
    step.currentChanged = before.current != after.current;
    return step;
}

bool applyListDelta(const std::vector<Singer>& present, const std::vector<LinkChange>& links,
                    const std::vector<SingerChange>& changes, StepDirection direction, std::vector<Singer>& out) {
    return applyDelta(present, links, changes, direction, out);
}

bool applyListDelta(const std::vector<QueueRef>& present, const std::vector<LinkChange>& links,
                    const std::vector<QueueChange>& changes, StepDirection direction, std::vector<QueueRef>& out) {
    return applyDelta(present, links, changes, direction, out);
}

}  // namespace tamo::core
