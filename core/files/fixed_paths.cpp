#include "fixed_paths.h"

#include <cstdlib>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace tamo::core {
namespace fs = std::filesystem;
namespace {

const char* nonEmptyVariable(const char* name) {
    const char* value = std::getenv(name);
    return (value != nullptr && value[0] != '\0') ? value : nullptr;
}

fs::path dataRootFile(const char* name) {
    const fs::path root = dataRootPath();
    return root.empty() ? fs::path() : root / name;
}

bool isRegularFile(const fs::path& path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

bool isDirectory(const fs::path& path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool isSourceTree(const fs::path& folder) {
    return isRegularFile(folder / "CMakeLists.txt") && isDirectory(folder / "platform") &&
           isDirectory(folder / "core");
}

fs::path runningExecutable() {
    for (std::size_t capacity = 260; capacity <= 32768; capacity *= 2) {
        std::string buffer(capacity, '\0');
        const ssize_t length = ::readlink("/proc/self/exe", buffer.data(), buffer.size());
        if (length <= 0) return {};
        if (static_cast<std::size_t>(length) < buffer.size()) {
            buffer.resize(static_cast<std::size_t>(length));
            return buffer;
        }
    }
    return {};
}

}  // namespace

fs::path dataRootPath() {
    // A relative XDG_DATA_HOME is invalid by the XDG rules and ignored.
    const char* xdg = nonEmptyVariable("XDG_DATA_HOME");
    if (xdg != nullptr && xdg[0] == '/') return fs::path(xdg) / "Quillon" / "Tamo";
    const char* home = nonEmptyVariable("HOME");
    if (home != nullptr) return fs::path(home) / ".local" / "share" / "Quillon" / "Tamo";
    return {};
}

fs::path recoveryFilePath() { return dataRootFile("event-recovery.json"); }

fs::path recoveryBackupPath() {
    fs::path path = recoveryFilePath();
    if (!path.empty()) path += ".bak";
    return path;
}

fs::path appearanceSettingsPath() { return dataRootFile("appearance-settings.json"); }
fs::path MediaIndexCachePath() { return dataRootFile("media-index-cache.tsv"); }
fs::path recoveryArchivesPath() { return dataRootFile("recovery-archives"); }

fs::path settingsFilePathFor(const fs::path& executable) {
    try {
        if (!executable.empty()) {
            fs::path folder = executable.parent_path();
            while (!folder.empty()) {
                if (isSourceTree(folder)) return folder / "tamo.json";
                if (folder == folder.root_path()) break;
                fs::path parent = folder.parent_path();
                if (parent == folder) break;
                folder = std::move(parent);
            }
        }
        return dataRootFile("tamo.json");
    } catch (...) {
        return {};
    }
}

fs::path settingsFilePath() {
    try {
        return settingsFilePathFor(runningExecutable());
    } catch (...) {
        return {};
    }
}

}  // namespace tamo::core
