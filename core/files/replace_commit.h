#pragma once

#include "file_kind.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string_view>
#include <vector>

namespace tamo::core {

// The replace of one durable file, step by step, so that a writer can add
// its own step (such as refreshing a backup) between the verified temporary
// and the final rename:
//
//   ReplaceCommit commit(target, {backup});
//   if (!commit.begin()) return false;                 // kinds noted
//   if (!commit.writeTemporary(bytes)) return false;  // kinds re-checked
//   ... own step, e.g. copyVerifiedFile(target, backup) ...
//   return commit.commit();                           // rename over target
//
// A watched path is one whose kind must not change while the temporary is
// written (the backup of the recovery file). The temporary is removed on
// every way out unless commit() renamed it into place. Not thread-safe; one
// object per write.
class ReplaceCommit {
public:
    explicit ReplaceCommit(std::filesystem::path target, std::vector<std::filesystem::path> watched = {});
    ~ReplaceCommit();
    ReplaceCommit(const ReplaceCommit&) = delete;
    ReplaceCommit& operator=(const ReplaceCommit&) = delete;

    // Notes the kind of the target and of every watched path. Fails, before
    // anything is created, on an empty target or when any of them is a
    // folder, link, device or unreadable.
    bool begin();
    // Writes the verified temporary, then requires every noted kind to be
    // unchanged: a change means somebody else touched the files.
    bool writeTemporary(std::string_view bytes);
    // Requires the target's kind unchanged and the temporary still a plain
    // file, then renames it over the target and flushes the folder.
    bool commit();

    FileKind targetKind() const { return targetKind_; }
    FileKind watchedKind(std::size_t index) const { return watchedKinds_.at(index); }
    const std::filesystem::path& temporaryPath() const { return temporary_; }

private:
    void discardTemporary();

    std::filesystem::path target_;
    std::vector<std::filesystem::path> watched_;
    FileKind targetKind_ = FileKind::Unreadable;
    std::vector<FileKind> watchedKinds_;
    std::filesystem::path temporary_;
    bool begun_ = false;
    bool committed_ = false;
};

// The whole sequence for a file without companions: 1 to maxBytes bytes
// replace target, or target stays as it was.
bool replaceFileVerified(const std::filesystem::path& target, std::string_view bytes, std::uint64_t maxBytes);

}  // namespace tamo::core
