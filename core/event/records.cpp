#include "records.h"

namespace tamo::core {

std::string_view playbackStatusWord(PlaybackStatus status) {
    switch (status) {
        case PlaybackStatus::Stopped: return "stopped";
        case PlaybackStatus::Playing: return "playing";
        case PlaybackStatus::Paused: return "paused";
    }
    return "unknown";
}

}  // namespace tamo::core
