// tamo-recovery: reads an event recovery file the way the program reads it
// at start and says what it found. It never writes anything, so a host or a
// support person can look at a file (or a copy of one from an archive)
// without any risk to it.

#include "json_text.h"
#include "recovery_reader.h"

#include <cstdio>
#include <cstring>
#include <string>

namespace {

constexpr const char* kHelp =
    "Usage: tamo-recovery read FILE [--media-cache FILE] [--override-folder DIR] [--json]\n"
    "       tamo-recovery --help\n"
    "\n"
    "Reads an event recovery file (event-recovery.json, its .bak, a corrupt\n"
    "copy or an archived copy) exactly as Tamo reads it at start: every record\n"
    "is checked, and queue entries and the current performance are bound to\n"
    "the songs of the media folder the file names. Nothing is ever written:\n"
    "not the file, not the media index cache.\n"
    "\n"
    "  --media-cache FILE     use this media index cache (media-index-cache.tsv)\n"
    "                         when it still matches the folder; else the folder\n"
    "                         is scanned\n"
    "  --override-folder DIR  bind to DIR instead of the folder the file names,\n"
    "                         as when a moved library is chosen again\n"
    "  --json                 print one JSON object instead of lines\n"
    "\n"
    "Prints the read status (0 missing, 1 complete, 2 partial, 4 newer,\n"
    "5 damaged), the media folder, the playback position and status, and the\n"
    "counts of singers, singer states, queue entries and history entries, and\n"
    "whether a performance is current.\n"
    "Exit status: 0 for statuses 0 to 2, 1 otherwise, 2 for a usage error.\n";

int usage(const char* message, const char* argument) {
    std::fprintf(stderr, "tamo-recovery: %s%s\n(see tamo-recovery --help)\n", message, argument);
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    using namespace tamo;
    std::string file;
    std::string cache;
    bool haveCache = false;
    shell::RecoveryReadOptions options;
    bool json = false;
    bool readCommand = false;
    for (int i = 1; i < argc; ++i) {
        const char* arg = argv[i];
        if (std::strcmp(arg, "--help") == 0 || std::strcmp(arg, "-h") == 0) {
            std::fputs(kHelp, stdout);
            return 0;
        }
        if (std::strcmp(arg, "--json") == 0) {
            json = true;
        } else if (std::strcmp(arg, "--media-cache") == 0 || std::strcmp(arg, "--override-folder") == 0) {
            if (i + 1 >= argc) return usage("missing value for ", arg);
            if (std::strcmp(arg, "--media-cache") == 0) {
                cache = argv[++i];
                haveCache = true;
            } else {
                options.overrideMediaFolder = argv[++i];
            }
        } else if (!readCommand && std::strcmp(arg, "read") == 0) {
            readCommand = true;
        } else if (readCommand && file.empty() && arg[0] != '-') {
            file = arg;
        } else {
            return usage("unexpected argument: ", arg);
        }
    }
    if (!readCommand) return usage("expected the command ", "read");
    if (file.empty()) return usage("expected the recovery ", "FILE");
    if (haveCache && cache.empty()) return usage("empty value for ", "--media-cache");

    options.loadLibrary = shell::readOnlyRecoveryLibrary(cache);
    core::EventCore event;
    std::string mediaFolder;
    std::int64_t positionMs = 0;
    core::SingerStates singerStates;
    shell::RecoveryReadDetails details;
    const shell::RecoveryReadStatus status =
        shell::readEventRecovery(file, event, mediaFolder, positionMs, singerStates, options, &details);
    const int code = static_cast<int>(status);
    const bool read = status == shell::RecoveryReadStatus::Complete || status == shell::RecoveryReadStatus::Partial;
    const std::string playback(read ? core::playbackStatusWord(event.playbackStatus()) : "");

    if (json) {
        std::string out = "{\"status\":";
        shell::appendJsonInteger(out, code);
        out += ",\"statusName\":";
        shell::appendJsonText(out, shell::recoveryReadStatusName(status));
        out += ",\"mediaFolder\":";
        shell::appendJsonText(out, mediaFolder);
        out += ",\"playbackPositionMs\":";
        shell::appendJsonInteger(out, read ? positionMs : 0);
        out += ",\"playbackStatus\":";
        shell::appendJsonText(out, playback);
        out += ",\"singers\":";
        shell::appendJsonInteger(out, static_cast<std::int64_t>(event.singers().size()));
        out += ",\"singerStates\":";
        shell::appendJsonInteger(out, static_cast<std::int64_t>(singerStates.size()));
        out += ",\"queueEntries\":";
        shell::appendJsonInteger(out, static_cast<std::int64_t>(event.queue().size()));
        out += ",\"historyEntries\":";
        shell::appendJsonInteger(out, static_cast<std::int64_t>(event.history().size()));
        out += ",\"currentPerformance\":";
        out += event.current() ? "true" : "false";
        out += "}\n";
        std::fputs(out.c_str(), stdout);
    } else {
        std::printf("status: %d %s\n", code, std::string(shell::recoveryReadStatusName(status)).c_str());
        std::printf("media folder: %s\n", mediaFolder.c_str());
        std::printf("playback position ms: %lld\n", static_cast<long long>(read ? positionMs : 0));
        std::printf("playback status: %s\n", playback.c_str());
        std::printf("singers: %zu\n", event.singers().size());
        std::printf("singer states: %zu\n", singerStates.size());
        std::printf("queue entries: %zu\n", event.queue().size());
        std::printf("history entries: %zu\n", event.history().size());
        std::printf("current performance: %s\n", event.current() ? "yes" : "no");
    }
    return code <= 2 ? 0 : 1;
}
