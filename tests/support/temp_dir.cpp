#include "temp_dir.h"

#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <system_error>
#include <unistd.h>

namespace tamo::test {

TempDir::TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "tamo-test-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    path_ = pattern;
}

TempDir::~TempDir() {
    std::error_code ec;
    // Tests may leave read-only folders behind; make them writable first.
    for (auto it = std::filesystem::recursive_directory_iterator(path_, ec);
         !ec && it != std::filesystem::recursive_directory_iterator(); it.increment(ec)) {
        std::error_code ignored;
        if (it->is_directory(ignored) && !it->is_symlink(ignored))
            std::filesystem::permissions(it->path(), std::filesystem::perms::owner_all,
                                         std::filesystem::perm_options::add, ignored);
    }
    std::filesystem::remove_all(path_, ec);
}

std::filesystem::path TempDir::write(std::string_view relative, std::string_view content) const {
    const std::filesystem::path file = path_ / relative;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out.write(content.data(), static_cast<std::streamsize>(content.size()));
    if (!out) throw std::runtime_error("could not write " + file.string());
    return file;
}

}  // namespace tamo::test
