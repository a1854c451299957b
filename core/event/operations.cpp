#include "operations.h"

#include "json_writer.h"
#include "operator_history.h"
#include "song_search.h"

#include <algorithm>
#include <array>
#include <exception>
#include <functional>
#include <stdexcept>

namespace tamo::core {
namespace {

constexpr std::array<std::string_view, 61> kOperationNames{
    "state", "operations", "add_song", "scan_folder", "replace_library_from_folder", "search", "add_singer",
    "update_singer", "delete_singer", "move_singer_before", "enqueue", "enqueue_for_singer", "remove_queued_entry",
    "move_queued_entry", "move_queued_entry_to_top", "move_queued_entry_to_singer_before", "activate_queued_entry",
    "advance", "advance_for_singer", "previous", "reset_event", "restore_current", "restore_history_entry",
    "replay_history_entry", "clear_current", "clear_queue", "play", "pause", "stop", "set_music_volume",
    "filler_state", "filler_set_mode", "filler_set_shuffle", "filler_set_volume", "filler_set_playlist",
    "filler_add_track", "filler_remove_track", "filler_move_track", "filler_previous_track", "filler_next_track",
    "filler_play", "filler_pause", "filler_toggle", "media_set_folder", "media_rebuild_library",
    "app_status_message", "app_show_window", "app_hide_window", "app_focus_window", "app_open_settings",
    "app_open_library", "app_open_diagnostics", "app_audience_show", "app_audience_toggle_fullscreen",
    "app_audience_next_display", "operator_history_begin", "operator_history_commit", "operator_history_cancel",
    "operator_history_undo", "operator_history_redo", "operator_history_clear"};

void appendMessage(std::string& body, const std::string& message) {
    if (message.empty()) return;
    body += ",\"message\":";
    appendJsonString(body, message);
}

OperationResponse okResponse(std::string message) {
    OperationResponse response;
    response.status = "ok";
    if (!message.empty()) response.fields["message"] = message;
    response.message = std::move(message);
    return response;
}

OperationResponse changedResponse(bool changed, std::string message) {
    OperationResponse response = okResponse(std::move(message));
    response.fields["changed"] = changed ? "true" : "false";
    response.body = changed ? "{\"status\":\"ok\",\"changed\":true" : "{\"status\":\"ok\",\"changed\":false";
    appendMessage(response.body, response.message);
    response.body.push_back('}');
    return response;
}

OperationResponse idResponse(std::string_view key, std::int64_t value, std::string message) {
    OperationResponse response = okResponse(std::move(message));
    response.fields[std::string(key)] = std::to_string(value);
    response.body = "{\"status\":\"ok\",";
    appendJsonString(response.body, key);
    response.body.push_back(':');
    response.body += std::to_string(value);
    appendMessage(response.body, response.message);
    response.body.push_back('}');
    return response;
}

OperationResponse errorResponse(std::int32_t httpStatus, std::string message) {
    OperationResponse response;
    response.httpStatus = httpStatus;
    response.status = "error";
    response.fields["message"] = message;
    response.body = "{\"status\":\"error\",\"message\":";
    appendJsonString(response.body, message);
    response.body.push_back('}');
    response.message = std::move(message);
    return response;
}

struct Context {
    EventCore& core;
    OperatorHistory* history;
    const OperationParameters& parameters;

    const std::string& text(const std::string& name) const { return readStringParameter(parameters, name); }
    std::int32_t integer(const std::string& name) const { return readIntegerParameter(parameters, name); }
    std::int32_t optionalInteger(const std::string& name, std::int32_t fallback) const {
        return readOptionalIntegerParameter(parameters, name, fallback);
    }
    double number(const std::string& name) const { return readNumberParameter(parameters, name); }
};

// Runs a mutation inside its own undo transaction. The mutation reads its
// parameters itself, after `begin`, so an open transaction refuses the
// operation before anything is read. Returns the mutation's result, or 0
// when the history refused or nothing changed.
std::int64_t runWrapped(Context& context, const std::function<std::int64_t()>& mutation) {
    OperatorHistory* history = context.history;
    if (history == nullptr) return mutation();
    if (!history->begin(context.core)) return 0;
    try {
        const std::int64_t result = mutation();
        if (result == 0) {
            history->cancel();
            return 0;
        }
        if (!history->commit(context.core)) {
            history->cancel();
            return 0;
        }
        return result;
    } catch (...) {
        history->cancel();
        throw;
    }
}

void appendStateBody(std::string& body, const EventCore& core, const OperatorHistory* operatorHistory) {
    body = "{\"status\":\"ok\",\"playback\":{\"status\":";
    appendJsonString(body, playbackStatusWord(core.playbackStatus()));
    body += ",\"musicVolume\":";
    appendJsonFloat(body, core.musicVolume());
    body += "},\"library\":{\"songCount\":";
    body += std::to_string(core.songCount());
    body += "},\"singers\":[";
    const auto& singers = core.singers();
    for (std::size_t i = 0; i < std::min(singers.size(), kStateListLimit); ++i) {
        if (i != 0) body.push_back(',');
        body += "{\"id\":";
        body += std::to_string(singers[i].id);
        body += ",\"name\":";
        appendJsonString(body, singers[i].name);
        body.push_back('}');
    }
    body += "],\"queue\":[";
    const auto& queue = core.queue();
    for (std::size_t i = 0; i < std::min(queue.size(), kStateListLimit); ++i) {
        if (i != 0) body.push_back(',');
        appendJsonEntry(body, queue[i]);
    }
    body += "],\"current\":";
    if (core.current()) {
        appendJsonEntry(body, *core.current());
    } else {
        body += "null";
    }
    body += ",\"history\":[";
    const auto& played = core.history();
    for (std::size_t i = 0; i < std::min(played.size(), kStateListLimit); ++i) {
        if (i != 0) body.push_back(',');
        appendJsonHistoryEntry(body, played[i]);
    }
    auto flag = [](bool value) { return value ? "true" : "false"; };
    body += "],\"truncated\":{\"singers\":";
    body += flag(singers.size() > kStateListLimit);
    body += ",\"queue\":";
    body += flag(queue.size() > kStateListLimit);
    body += ",\"history\":";
    body += flag(played.size() > kStateListLimit);
    body.push_back('}');
    if (const OperatorHistory* history = operatorHistory) {
        body += ",\"operatorHistory\":{\"undoCount\":";
        body += std::to_string(history->undoCount());
        body += ",\"redoCount\":";
        body += std::to_string(history->redoCount());
        body += ",\"transactionOpen\":";
        body += flag(history->isTransactionOpen());
        body += ",\"deltaBytes\":";
        body += std::to_string(history->deltaBytes());
        body += ",\"residentBytes\":";
        body += std::to_string(history->residentBytes());
        body.push_back('}');
    }
    body.push_back('}');
}

OperationResponse stateOperation(Context& c) {
    OperationResponse response = okResponse("State captured");
    appendStateBody(response.body, c.core, c.history);
    response.fields["songCount"] = std::to_string(c.core.songCount());
    response.fields["singerCount"] = std::to_string(c.core.singers().size());
    response.fields["queueCount"] = std::to_string(c.core.queue().size());
    response.fields["historyCount"] = std::to_string(c.core.history().size());
    response.fields["playbackStatus"] = std::string(playbackStatusWord(c.core.playbackStatus()));
    if (c.history != nullptr) {
        response.fields["undoCount"] = std::to_string(c.history->undoCount());
        response.fields["redoCount"] = std::to_string(c.history->redoCount());
    }
    return response;
}

OperationResponse operationsOperation(Context&) {
    OperationResponse response = okResponse("Operations listed");
    response.body = "{\"status\":\"ok\",\"operations\":[";
    bool first = true;
    for (std::string_view name : kOperationNames) {
        if (!first) response.body.push_back(',');
        first = false;
        appendJsonString(response.body, name);
    }
    response.body += "]}";
    return response;
}

OperationResponse searchOperation(Context& c) {
    const std::int32_t limit = std::clamp(c.optionalInteger("limit", 100), 1, 250);
    const std::string& query = c.text("query");
    const std::vector<Song> found = searchSongs(c.core.songs(), query, static_cast<std::size_t>(limit));
    OperationResponse response = okResponse("Search completed");
    response.fields["count"] = std::to_string(found.size());
    response.body = "{\"status\":\"ok\",\"count\":";
    response.body += std::to_string(found.size());
    response.body += ",\"results\":[";
    for (std::size_t i = 0; i < found.size(); ++i) {
        if (i != 0) response.body.push_back(',');
        appendJsonSong(response.body, found[i]);
    }
    response.body += "]}";
    return response;
}

using Handler = std::function<OperationResponse(Context&)>;

struct Route {
    std::string_view name;
    Handler run;
    bool needsHistory = false;
};

// Wrapped id-creating operations answer "changed":false on refusal.
Handler wrappedId(std::string_view key, std::string success, std::string refusal,
                  std::function<std::int32_t(Context&)> mutation) {
    return [key, success, refusal, mutation](Context& c) {
        const auto id = runWrapped(c, [&] { return static_cast<std::int64_t>(mutation(c)); });
        return id != 0 ? idResponse(key, id, success) : changedResponse(false, refusal);
    };
}

Handler wrappedChange(std::string message, std::function<bool(Context&)> mutation) {
    return [message, mutation](Context& c) {
        const auto changed = runWrapped(c, [&] { return static_cast<std::int64_t>(mutation(c) ? 1 : 0); });
        return changedResponse(changed != 0, message);
    };
}

Handler change(std::string message, std::function<bool(Context&)> mutation) {
    return [message, mutation](Context& c) { return changedResponse(mutation(c), message); };
}

const std::vector<Route>& routes() {
    static const std::vector<Route> table = {
        {"state", stateOperation},
        {"operations", operationsOperation},
        {"add_song",
         [](Context& c) {
             const std::string& format = c.text("format");
             const std::string& artist = c.text("artist");
             const std::string& title = c.text("title");
             const std::string& path = c.text("path");
             const std::int32_t id = c.core.addSong(path, title, artist, format);
             return id != 0 ? idResponse("songId", id, "Song added") : errorResponse(400, "Song was not added");
         }},
        {"scan_folder",
         [](Context& c) {
             const auto count = c.core.scanFolderIntoLibrary(c.text("folderPath"));
             return idResponse("indexed", static_cast<std::int64_t>(count), "Folder scanned");
         }},
        {"replace_library_from_folder",
         [](Context& c) {
             const auto count = c.core.replaceLibraryFromFolder(c.text("folderPath"));
             return idResponse("indexed", static_cast<std::int64_t>(count), "Library replaced");
         }},
        {"search", searchOperation},
        {"add_singer", wrappedId("singerId", "Singer added", "Singer was not added",
                                 [](Context& c) { return c.core.addSinger(c.text("name")); })},
        {"update_singer", wrappedChange("Singer updated",
                                        [](Context& c) {
                                            const std::string& name = c.text("name");
                                            return c.core.renameSinger(c.integer("singerId"), name);
                                        })},
        {"delete_singer",
         wrappedChange("Singer deleted", [](Context& c) { return c.core.deleteSinger(c.integer("singerId")); })},
        {"move_singer_before", wrappedChange("Singer moved",
                                             [](Context& c) {
                                                 const auto singerId = c.integer("singerId");
                                                 return c.core.moveSingerBefore(
                                                     singerId, c.optionalInteger("beforeSingerId", 0));
                                             })},
        {"enqueue", wrappedId("queueId", "Song queued", "Song was not queued",
                              [](Context& c) {
                                  const std::string& singer = c.text("singer");
                                  return c.core.enqueueNewSinger(c.integer("songId"), singer);
                              })},
        {"enqueue_for_singer", wrappedId("queueId", "Song queued", "Song was not queued",
                                         [](Context& c) {
                                             const auto singerId = c.integer("singerId");
                                             return c.core.enqueueForSinger(c.integer("songId"), singerId);
                                         })},
        {"remove_queued_entry", wrappedChange("Queue entry removed",
                                              [](Context& c) {
                                                  return c.core.removeQueuedEntry(c.integer("queueEntryId"));
                                              })},
        {"move_queued_entry", wrappedChange("Queue entry moved",
                                            [](Context& c) {
                                                const auto queueId = c.integer("queueEntryId");
                                                return c.core.moveQueuedEntry(queueId, c.integer("direction"));
                                            })},
        {"move_queued_entry_to_top", wrappedChange("Queue entry moved",
                                                   [](Context& c) {
                                                       return c.core.moveQueuedEntryToTop(c.integer("queueEntryId"));
                                                   })},
        {"move_queued_entry_to_singer_before",
         wrappedChange("Queue entry reassigned",
                       [](Context& c) {
                           const auto queueId = c.integer("queueEntryId");
                           const auto singerId = c.integer("singerId");
                           return c.core.reassignQueuedEntry(queueId, singerId,
                                                             c.optionalInteger("beforeQueueEntryId", 0));
                       })},
        {"activate_queued_entry", change("Queue entry activated",
                                         [](Context& c) {
                                             return c.core.activateQueuedEntry(c.integer("queueEntryId"));
                                         })},
        {"advance", change("Advanced rotation", [](Context& c) { return c.core.advance(); })},
        {"advance_for_singer",
         change("Advanced singer", [](Context& c) { return c.core.advanceForSinger(c.integer("singerId")); })},
        {"previous", change("Restored previous item", [](Context& c) { return c.core.previous(); })},
        {"reset_event", change("Event reset",
                               [](Context& c) {
                                   c.core.resetEvent();
                                   if (c.history != nullptr) c.history->clear();
                                   return true;
                               })},
        {"restore_current", change("Current restored",
                                   [](Context& c) {
                                       const auto singerId = c.integer("singerId");
                                       return c.core.restoreCurrent(c.integer("songId"), singerId);
                                   })},
        {"restore_history_entry", change("History restored",
                                         [](Context& c) {
                                             const double playedAt = c.number("playedAt");
                                             const std::string& singer = c.text("singer");
                                             const auto singerId = c.integer("singerId");
                                             const auto songId = c.integer("songId");
                                             return c.core.restoreHistoryEntry(songId, singerId, singer, playedAt);
                                         })},
        {"replay_history_entry", change("History replayed",
                                        [](Context& c) {
                                            const auto singerId = c.integer("singerId");
                                            return c.core.replayHistoryEntry(c.integer("historyEntryId"), singerId);
                                        })},
        {"clear_current", change("Current cleared",
                                 [](Context& c) {
                                     c.core.clearCurrent();
                                     return true;
                                 })},
        {"clear_queue", change("Queue cleared",
                               [](Context& c) {
                                   c.core.clearQueue();
                                   return true;
                               })},
        {"play", change("Playback started",
                        [](Context& c) {
                            if (!c.core.current()) return false;
                            c.core.setPlaybackStatus(PlaybackStatus::Playing);
                            return true;
                        })},
        {"pause", change("Playback paused",
                         [](Context& c) {
                             if (c.core.playbackStatus() == PlaybackStatus::Playing)
                                 c.core.setPlaybackStatus(PlaybackStatus::Paused);
                             return true;
                         })},
        {"stop", change("Playback stopped",
                        [](Context& c) {
                            c.core.setPlaybackStatus(PlaybackStatus::Stopped);
                            return true;
                        })},
        {"set_music_volume", change("Music volume set",
                                    [](Context& c) {
                                        c.core.setMusicVolume(c.number("value"));
                                        return true;
                                    })},
        {"operator_history_begin",
         change("Operator transaction opened", [](Context& c) { return c.history->begin(c.core); }), true},
        {"operator_history_commit",
         change("Operator transaction committed", [](Context& c) { return c.history->commit(c.core); }), true},
        {"operator_history_cancel", change("Operator transaction cancelled",
                                           [](Context& c) {
                                               c.history->cancel();
                                               return true;
                                           }),
         true},
        {"operator_history_undo", change("Undo applied", [](Context& c) { return c.history->undo(c.core); }), true},
        {"operator_history_redo", change("Redo applied", [](Context& c) { return c.history->redo(c.core); }), true},
        {"operator_history_clear", change("Operator history cleared",
                                          [](Context& c) {
                                              c.history->clear();
                                              return true;
                                          }),
         true},
    };
    return table;
}

}  // namespace

std::span<const std::string_view> operationNames() { return kOperationNames; }

OperationResponse dispatchOperation(EventCore& core, OperatorHistory* history, const OperationRequest& request) {
    try {
        Context context{core, history, request.parameters};
        for (const Route& route : routes()) {
            if (route.name != request.name) continue;
            if (route.needsHistory && history == nullptr) break;
            return route.run(context);
        }
        return errorResponse(404, "Unknown operation: " + request.name);
    } catch (const std::exception& error) {
        return errorResponse(400, error.what());
    } catch (...) {
        return errorResponse(500, "Operation failed");
    }
}

}  // namespace tamo::core
