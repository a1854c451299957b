#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace tamo::test {

// A fresh directory under the system temporary folder, removed with
// everything in it when the object goes away.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(std::string_view name) const { return path_ / name; }

    // Writes a file (creating parent folders) and returns its path.
    std::filesystem::path write(std::string_view relative, std::string_view content = "") const;

private:
    std::filesystem::path path_;
};

}  // namespace tamo::test
