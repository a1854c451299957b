#pragma once

#include "event_core.h"
#include "records.h"

#include <span>

namespace tamo::shell {

// The parts of an event that the recovery file keeps, borrowed from a live
// EventCore or a snapshot without copying a single record. Valid while its
// source is unchanged.
struct RecoveryEventView {
    std::span<const core::Singer> singers;
    std::span<const core::QueueEntry> queue;
    const core::QueueEntry* current = nullptr;
    std::span<const core::HistoryEntry> history;
    core::PlaybackStatus playbackStatus = core::PlaybackStatus::Stopped;
    double musicVolume = 0.85;

    static RecoveryEventView of(const core::EventCore& event) {
        return {event.singers(), event.queue(), event.current() ? &*event.current() : nullptr, event.history(),
                event.playbackStatus(), event.musicVolume()};
    }
    static RecoveryEventView of(const core::EventSnapshot& event) {
        return {event.singers, event.queue, event.current ? &*event.current : nullptr, event.history,
                event.playbackStatus, event.musicVolume};
    }
};

}  // namespace tamo::shell
