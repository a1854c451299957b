#pragma once

#include "cdg_packets.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace tamo::cdg {

// Lays out jobs of packets on the 300-a-second timeline. Each slot carries at
// most one packet, so drawing a whole line takes a fraction of a second;
// timed work (highlights, screen clears) goes first and drawing fills the
// slots in between. A job starts no earlier than its wanted slot and only
// once the jobs it depends on are complete, which is what keeps a highlight
// from landing on a tile before its glyph is drawn.
class PacketScheduler {
public:
    static constexpr std::size_t none = std::numeric_limits<std::size_t>::max();

    enum class Priority { timed, fill };

    struct Layout {
        std::vector<Packet> stream;
        // Per slot, the job whose packet it holds, or -1 for an empty slot.
        std::vector<std::int64_t> jobAt;
        // Per job, the slots of its first and last packets (none if it had none).
        std::vector<std::size_t> firstSlot;
        std::vector<std::size_t> lastSlot;
    };

    // Returns the job's id. `after` names earlier jobs; with afterAllEarlier
    // the job also waits for every job added before it.
    std::size_t add(std::size_t wantedSlot, Priority priority, std::vector<Packet> packets,
                    std::vector<std::size_t> after = {}, bool afterAllEarlier = false);

    std::size_t wantedSlot(std::size_t job) const { return jobs_[job].wanted; }

    // Places every job; the stream is padded with empty packets to at least
    // minimumLength slots.
    Layout run(std::size_t minimumLength) const;

private:
    struct Job {
        std::size_t wanted = 0;
        Priority priority = Priority::fill;
        std::vector<Packet> packets;
        std::vector<std::size_t> after;
        bool afterAllEarlier = false;
    };
    std::vector<Job> jobs_;
};

}  // namespace tamo::cdg
