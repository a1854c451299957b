#pragma once

#include "unique_fd.h"

#include <filesystem>
#include <string_view>

namespace tamo::core {

// A freshly created temporary: its descriptor (read and write) and its path.
struct CreatedTemporary {
    UniqueFd fd;
    std::filesystem::path path;
};

// Creates a new file beside target under the marker's name, trying the next
// name while one exists, for at most 64 attempts. The descriptor is checked
// to be a plain file. An invalid fd means failure; nothing is left behind.
CreatedTemporary createNewTemporary(const std::filesystem::path& target, std::string_view marker);

// Removes a temporary on every way out of a scope unless disarmed.
class TemporaryGuard {
public:
    explicit TemporaryGuard(std::filesystem::path path) : path_(std::move(path)) {}
    ~TemporaryGuard() { removeQuietly(path_); }
    TemporaryGuard(const TemporaryGuard&) = delete;
    TemporaryGuard& operator=(const TemporaryGuard&) = delete;

    void disarm() { path_.clear(); }
    void reset(std::filesystem::path path) {
        removeQuietly(path_);
        path_ = std::move(path);
    }

private:
    std::filesystem::path path_;
};

}  // namespace tamo::core
