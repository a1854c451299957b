#include "operator_delta.h"

#include "id_table.h"

#include <algorithm>
#include <stdexcept>

namespace tamo::core {
namespace {

constexpr std::uint32_t kNowhere = 0xFFFFFFFFU;

[[noreturn]] void refuseIds() {
    throw std::invalid_argument("Operator history requires unique positive IDs");
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

    // The id maps of both sides share one table, keyed by id, holding the
    // id's place on each side; an element's successor is the id at the
    // following place. Matching the sides up front leaves the walks below
    // with no lookups at all.
    struct Places {
        std::uint32_t before = kNowhere;
        std::uint32_t after = kNowhere;
    };
    IdTable<Places> places(std::max(before.size(), after.size()));
    for (std::size_t i = 0; i < before.size(); ++i) {
        if (before[i].id < 1) refuseIds();
        const auto [place, inserted] = places.insert(before[i].id);
        if (!inserted) refuseIds();
        place->before = static_cast<std::uint32_t>(i);
    }
    std::vector<std::uint32_t> laterPlace(before.size(), kNowhere);
    std::vector<bool> carried(after.size(), false);
    for (std::size_t i = 0; i < after.size(); ++i) {
        if (after[i].id < 1) refuseIds();
        Places& place = *places.insert(after[i].id).first;
        if (place.after != kNowhere) refuseIds();
        place.after = static_cast<std::uint32_t>(i);
        if (place.before != kNowhere) {
            laterPlace[place.before] = place.after;
            carried[i] = true;
        }
    }

    // Both outputs follow the union of ids: `before` in its order, then
    // what `after` adds; the head's link comes first.
    if (headOf(before) != headOf(after)) links.push_back(LinkChange{0, headOf(before), headOf(after)});
    for (std::size_t i = 0; i < before.size(); ++i) {
        const T& element = before[i];
        const std::int32_t earlierNext = nextOf(before, i);
        const std::uint32_t later = laterPlace[i];
        if (later == kNowhere) {
            changes.push_back(Change{element.id, element, std::nullopt});
            links.push_back(LinkChange{element.id, earlierNext, std::nullopt});
            continue;
        }
        if (!(element == after[later])) changes.push_back(Change{element.id, element, after[later]});
        const std::int32_t laterNext = nextOf(after, later);
        if (laterNext != earlierNext) links.push_back(LinkChange{element.id, earlierNext, laterNext});
    }
    for (std::size_t i = 0; i < after.size(); ++i) {
        if (carried[i]) continue;
        changes.push_back(Change{after[i].id, std::nullopt, after[i]});
        links.push_back(LinkChange{after[i].id, std::nullopt, nextOf(after, i)});
    }
    // A step's size is charged by capacity, so keep none to spare.
    links.shrink_to_fit();
    changes.shrink_to_fit();
}

// One id while a step is applied: its element and its successor. Nodes
// 0 to n-1 are the present list's places, n is the head, and ids that the
// step brings in are added behind. `element` indexes the present list, or
// past its end the targets of the step's changes.
struct ApplyNode {
    std::uint32_t element = kNowhere;
    std::int32_t next = 0;
    bool hasNext = false;
    // Set by a link change; otherwise the successor is simply the next place.
    bool redirected = false;
    bool visited = false;
    // 0, 1, or 2 for "more than one": only exactly one is acceptable.
    std::uint8_t predecessors = 0;
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

    // The id map and the successor map, kept as one node per id. Only the
    // ids of the step are looked up by hash; the rest of the list is reached
    // by place, which keeps a step on a long list to sequential passes.
    const std::size_t length = present.size();
    const std::size_t head = length;
    constexpr std::size_t kEnd = static_cast<std::size_t>(-1);
    constexpr std::size_t kMissing = static_cast<std::size_t>(-2);
    std::vector<ApplyNode> nodes(length + 1);
    IdTable<std::uint32_t> nodeOf(length + changes.size() + links.size());
    for (std::size_t i = 0; i < length; ++i) {
        const std::int32_t id = present[i].id;
        if (id < 1) refuseIds();
        const auto [node, inserted] = nodeOf.insert(id);
        if (!inserted) refuseIds();
        *node = static_cast<std::uint32_t>(i);
        nodes[i].element = static_cast<std::uint32_t>(i);
        nodes[i].hasNext = true;
        nodes[i].next = nextOf(present, i);
    }
    nodes[head].hasNext = true;
    nodes[head].next = headOf(present);

    auto find = [&](std::int32_t id) -> std::size_t {
        if (id == 0) return head;
        const std::uint32_t* node = nodeOf.find(id);
        return node == nullptr ? kMissing : *node;
    };
    auto findOrAdd = [&](std::int32_t id) -> ApplyNode& {
        if (id == 0) return nodes[head];
        const auto [node, inserted] = nodeOf.insert(id);
        if (inserted) {
            *node = static_cast<std::uint32_t>(nodes.size());
            nodes.emplace_back();
        }
        return nodes[*node];
    };
    auto successorOf = [&](std::size_t at) -> std::size_t {
        const ApplyNode& node = nodes[at];
        if (node.next == 0) return kEnd;
        if (!node.redirected) return at == head ? 0 : at + 1;
        return find(node.next);
    };

    std::size_t elementCount = length;
    std::size_t nextCount = length + 1;

    // Everything the step expects must hold before anything is written.
    for (const Change& change : changes) {
        const std::optional<T>& expected = expectedSide(change.before, change.after, direction);
        const std::size_t at = change.id == 0 ? kMissing : find(change.id);
        const bool held = at != kMissing && nodes[at].element != kNowhere;
        if (expected ? !held || !(elementAt(nodes[at].element) == *expected) : held) return false;
    }
    for (const LinkChange& link : links) {
        const std::optional<std::int32_t>& expected = expectedSide(link.before, link.after, direction);
        const std::size_t at = find(link.id);
        const bool held = at != kMissing && nodes[at].hasNext;
        if (expected ? !held || nodes[at].next != *expected : held) return false;
    }

    for (std::size_t k = 0; k < changes.size(); ++k) {
        const Change& change = changes[k];
        const bool kept = targetSide(change.before, change.after, direction).has_value();
        // The head key can hold no element: nothing could ever link to it.
        if (change.id == 0) {
            if (kept) return false;
            continue;
        }
        ApplyNode& node = findOrAdd(change.id);
        if (node.element != kNowhere) --elementCount;
        node.element = kept ? static_cast<std::uint32_t>(length + k) : kNowhere;
        if (kept) ++elementCount;
    }
    for (const LinkChange& link : links) {
        const std::optional<std::int32_t>& target = targetSide(link.before, link.after, direction);
        ApplyNode& node = findOrAdd(link.id);
        if (node.hasNext) --nextCount;
        node.hasNext = target.has_value();
        node.next = target.value_or(0);
        node.redirected = true;
        if (node.hasNext) ++nextCount;
    }

    // The edited links must again form one list through every element and
    // nothing else: one successor per element plus the head, each element
    // the successor of exactly one key.
    if (nextCount != elementCount + 1 || !nodes[head].hasNext) return false;
    for (std::size_t at = 0; at < nodes.size(); ++at) {
        if (!nodes[at].hasNext) continue;
        if (at != head && nodes[at].element == kNowhere) return false;
        const std::size_t successor = successorOf(at);
        if (successor == kEnd) continue;
        if (successor == kMissing || nodes[successor].element == kNowhere) return false;
        std::uint8_t& predecessors = nodes[successor].predecessors;
        if (predecessors < 2) ++predecessors;
    }
    for (const ApplyNode& node : nodes) {
        if (node.element != kNowhere && node.predecessors != 1) return false;
    }

    out.clear();
    out.reserve(elementCount);
    for (std::size_t at = successorOf(head); at != kEnd; at = successorOf(at)) {
        if (at == kMissing) return false;
        ApplyNode& node = nodes[at];
        if (node.element == kNowhere || node.visited || !node.hasNext) return false;
        node.visited = true;
        out.push_back(elementAt(node.element));
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
