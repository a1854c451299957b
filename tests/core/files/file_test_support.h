#pragma once

#include "scoped_env.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

namespace tamo::test {

inline std::string slurp(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Names in a folder that contain marker.
inline std::vector<std::string> namesWith(const std::filesystem::path& folder, const std::string& marker) {
    std::vector<std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        const std::string name = entry.path().filename().string();
        if (name.find(marker) != std::string::npos) found.push_back(name);
    }
    return found;
}

}  // namespace tamo::test
