#pragma once

#include <cstdint>
#include <string>

namespace tamo::core {

// One library item. Copied by value into queue, current and history records,
// so a record keeps its title and paths when the library changes.
struct Song {
    std::int32_t id = 0;
    std::string path;
    std::string title;
    std::string artist;
    std::string format;
    std::string cdgPath;

    friend bool operator==(const Song&, const Song&) = default;
};

}  // namespace tamo::core
