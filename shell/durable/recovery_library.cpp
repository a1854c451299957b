#include "media_folder_scan.h"
#include "media_index_cache.h"
#include "media_index_scan.h"
#include "recovery_reader.h"

#include <filesystem>
#include <system_error>

namespace tamo::shell {

RecoveryLibraryLoader readOnlyRecoveryLibrary(std::filesystem::path cachePath) {
    return [cachePath = std::move(cachePath)](const std::filesystem::path& folder)
               -> std::optional<std::vector<core::Song>> {
        try {
            std::error_code error;
            const std::filesystem::path root = std::filesystem::canonical(folder, error);
            if (error) return std::nullopt;
            if (!cachePath.empty()) {
                std::vector<core::DirectoryStamp> stamps;
                std::vector<core::Song> songs;
                bool upgrade = false;
                if (core::readMediaIndexCache(cachePath, root, stamps, songs, &upgrade, {}, true) &&
                    core::directoryStampsMatch(root, stamps, {}))
                    return songs;
            }
            return core::scanMediaFolder(root);
        } catch (...) {
            return std::nullopt;
        }
    };
}

}  // namespace tamo::shell
