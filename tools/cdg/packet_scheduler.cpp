#include "packet_scheduler.h"

#include <algorithm>
#include <numeric>
#include <set>

namespace tamo::cdg {

std::size_t PacketScheduler::add(std::size_t wantedSlot, Priority priority, std::vector<Packet> packets,
                                 std::vector<std::size_t> after, bool afterAllEarlier) {
    jobs_.push_back({wantedSlot, priority, std::move(packets), std::move(after), afterAllEarlier});
    return jobs_.size() - 1;
}

PacketScheduler::Layout PacketScheduler::run(std::size_t minimumLength) const {
    const std::size_t count = jobs_.size();
    Layout layout;
    layout.firstSlot.assign(count, none);
    layout.lastSlot.assign(count, none);

    std::vector<std::size_t> byWanted(count);
    std::iota(byWanted.begin(), byWanted.end(), std::size_t{0});
    std::stable_sort(byWanted.begin(), byWanted.end(),
                     [&](std::size_t a, std::size_t b) { return jobs_[a].wanted < jobs_[b].wanted; });

    std::vector<std::size_t> emitted(count, 0);
    std::vector<bool> complete(count, false);
    std::size_t completePrefix = 0;  // every job below this id is complete
    std::size_t remaining = count;
    std::set<std::size_t> released[2];  // by id, so earlier work goes first
    std::size_t nextRelease = 0;

    const auto finish = [&](std::size_t job) {
        complete[job] = true;
        --remaining;
        while (completePrefix < count && complete[completePrefix]) ++completePrefix;
    };
    const auto ready = [&](std::size_t job) {
        const Job& j = jobs_[job];
        if (j.afterAllEarlier && completePrefix < job) return false;
        return std::all_of(j.after.begin(), j.after.end(), [&](std::size_t d) { return complete[d]; });
    };

    for (std::size_t slot = 0; remaining > 0 || slot < minimumLength; ++slot) {
        while (nextRelease < count && jobs_[byWanted[nextRelease]].wanted <= slot) {
            const std::size_t job = byWanted[nextRelease++];
            if (jobs_[job].packets.empty()) {
                released[0].insert(job);  // completes as soon as it is ready
                continue;
            }
            released[jobs_[job].priority == Priority::timed ? 0 : 1].insert(job);
        }

        // Jobs without packets complete in place, possibly unblocking others.
        for (bool progress = true; progress;) {
            progress = false;
            for (auto it = released[0].begin(); it != released[0].end(); ++it) {
                if (jobs_[*it].packets.empty() && ready(*it)) {
                    finish(*it);
                    released[0].erase(it);
                    progress = true;
                    break;
                }
            }
        }

        std::int64_t chosen = -1;
        for (auto& queue : released) {
            for (auto it = queue.begin(); it != queue.end() && chosen < 0; ++it)
                if (!jobs_[*it].packets.empty() && ready(*it)) chosen = static_cast<std::int64_t>(*it);
            if (chosen >= 0) break;
        }
        if (chosen < 0) {
            layout.stream.push_back(Packet{});
            layout.jobAt.push_back(-1);
            continue;
        }

        const auto job = static_cast<std::size_t>(chosen);
        layout.stream.push_back(jobs_[job].packets[emitted[job]]);
        layout.jobAt.push_back(chosen);
        if (emitted[job] == 0) layout.firstSlot[job] = slot;
        layout.lastSlot[job] = slot;
        if (++emitted[job] == jobs_[job].packets.size()) {
            finish(job);
            released[jobs_[job].priority == Priority::timed ? 0 : 1].erase(job);
        }
    }
    return layout;
}

}  // namespace tamo::cdg
