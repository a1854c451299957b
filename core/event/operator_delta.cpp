#include "operator_delta.h"

#include "id_table.h"

#include <stdexcept>

namespace tamo::core {
namespace {

[[noreturn]] void refuseIds() {
    throw std::invalid_argument("Operator history requires unique positive IDs");
}

// Where each id stands in its list: the id map and the successor map in
// one, since the element and the id behind it both follow from the place.
template <class T>
IdTable<std::uint32_t> indexList(const std::vector<T>& list) {
    IdTable<std::uint32_t> table(list.size());
    for (std::size_t i = 0; i < list.size(); ++i) {
        const std::int32_t id = list[i].id;
        if (id < 1) refuseIds();
        const auto [place, inserted] = table.insert(id);
        if (!inserted) refuseIds();
        *place = static_cast<std::uint32_t>(i);
    }
    return table;
}

template <class T>
std::int32_t headOf(const std::vector<T>& list) {
    return list.empty() ? 0 : list.front().id;
}

template <class T>
std::int32_t nextOf(const std::vector<T>& list, std::size_t place) {
    return place + 1 < list.size() ? list[place + 1].id : 0;
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

    const IdTable<std::uint32_t> beforeAt = indexList(before);
    const IdTable<std::uint32_t> afterAt = indexList(after);

    // Both outputs follow the union of ids: `before` in its order, then
    // what `after` adds; the head's link comes first.
    if (headOf(before) != headOf(after)) links.push_back(LinkChange{0, headOf(before), headOf(after)});
    for (std::size_t i = 0; i < before.size(); ++i) {
        const T& element = before[i];
        const std::int32_t earlierNext = nextOf(before, i);
        const std::uint32_t* later = afterAt.find(element.id);
        if (later == nullptr) {
            changes.push_back(Change{element.id, element, std::nullopt});
            links.push_back(LinkChange{element.id, earlierNext, std::nullopt});
            continue;
        }
        if (!(element == after[*later])) changes.push_back(Change{element.id, element, after[*later]});
        const std::int32_t laterNext = nextOf(after, *later);
        if (laterNext != earlierNext) links.push_back(LinkChange{element.id, earlierNext, laterNext});
    }
    for (std::size_t i = 0; i < after.size(); ++i) {
        if (beforeAt.find(after[i].id) != nullptr) continue;
        changes.push_back(Change{after[i].id, std::nullopt, after[i]});
        links.push_back(LinkChange{after[i].id, std::nullopt, nextOf(after, i)});
    }
    // A step's size is charged by capacity, so keep none to spare.
    links.shrink_to_fit();
    changes.shrink_to_fit();
}

// One id while a step is applied. `element` indexes the present list, or
// past its end the targets of the step's changes.
struct ApplyNode {
    static constexpr std::uint32_t kAbsent = 0xFFFFFFFFU;

    std::uint32_t element = kAbsent;
    std::int32_t next = 0;
    bool hasNext : 1 = false;
    bool visited : 1 = false;
    // 0, 1, or 2 for "more than one": only exactly one is acceptable.
    std::uint8_t predecessors : 2 = 0;
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
    auto elementAt = [&](std::uint32_t element) -> const T& {
        if (element < present.size()) return present[element];
        const Change& change = changes[element - present.size()];
        return *targetSide(change.before, change.after, direction);
    };

    IdTable<ApplyNode> table(present.size() + changes.size() + links.size() + 1);
    {
        ApplyNode& head = *table.insert(0).first;
        head.hasNext = true;
        head.next = headOf(present);
    }
    for (std::size_t i = 0; i < present.size(); ++i) {
        const std::int32_t id = present[i].id;
        if (id < 1) refuseIds();
        const auto [node, inserted] = table.insert(id);
        if (!inserted) refuseIds();
        node->element = static_cast<std::uint32_t>(i);
        node->hasNext = true;
        node->next = nextOf(present, i);
    }
    std::size_t elementCount = present.size();
    std::size_t nextCount = present.size() + 1;

    // Everything the step expects must hold before anything is written.
    for (const Change& change : changes) {
        const std::optional<T>& expected = expectedSide(change.before, change.after, direction);
        const ApplyNode* node = table.find(change.id);
        const bool held = node != nullptr && node->element != ApplyNode::kAbsent;
        if (expected ? !held || !(elementAt(node->element) == *expected) : held) return false;
    }
    for (const LinkChange& link : links) {
        const std::optional<std::int32_t>& expected = expectedSide(link.before, link.after, direction);
        const ApplyNode* node = table.find(link.id);
        const bool held = node != nullptr && node->hasNext;
        if (expected ? !held || node->next != *expected : held) return false;
    }

    for (std::size_t k = 0; k < changes.size(); ++k) {
        const Change& change = changes[k];
        ApplyNode& node = *table.insert(change.id).first;
        if (node.element != ApplyNode::kAbsent) --elementCount;
        const bool kept = targetSide(change.before, change.after, direction).has_value();
        node.element = kept ? static_cast<std::uint32_t>(present.size() + k) : ApplyNode::kAbsent;
        if (kept) ++elementCount;
    }
    for (const LinkChange& link : links) {
        const std::optional<std::int32_t>& target = targetSide(link.before, link.after, direction);
        ApplyNode& node = *table.insert(link.id).first;
        if (node.hasNext) --nextCount;
        node.hasNext = target.has_value();
        node.next = target.value_or(0);
        if (node.hasNext) ++nextCount;
    }

    // The edited links must again form one list through every element and
    // nothing else: one successor per element plus the head, each element
    // the successor of exactly one key.
    const ApplyNode* head = table.find(0);
    if (nextCount != elementCount + 1 || head == nullptr || !head->hasNext) return false;
    bool consistent = true;
    table.forEach([&](std::int32_t id, ApplyNode& node) {
        if (!node.hasNext) return;
        if (id != 0 && node.element == ApplyNode::kAbsent) consistent = false;
        if (node.next == 0) return;
        ApplyNode* successor = table.find(node.next);
        if (successor == nullptr || successor->element == ApplyNode::kAbsent) {
            consistent = false;
        } else if (successor->predecessors < 2) {
            ++successor->predecessors;
        }
    });
    if (!consistent) return false;
    table.forEach([&](std::int32_t, ApplyNode& node) {
        if (node.element != ApplyNode::kAbsent && node.predecessors != 1) consistent = false;
    });
    if (!consistent) return false;

    out.clear();
    out.reserve(elementCount);
    for (std::int32_t id = table.find(0)->next; id != 0;) {
        ApplyNode* node = table.find(id);
        if (node == nullptr || node->element == ApplyNode::kAbsent || node->visited || !node->hasNext) return false;
        node->visited = true;
        out.push_back(elementAt(node->element));
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
