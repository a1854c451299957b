#include "replace_commit.h"

#include "unique_fd.h"
#include "verified_write.h"

namespace tamo::core {
namespace {

bool touchable(FileKind kind) {
    return kind == FileKind::Missing || kind == FileKind::RegularFile;
}

}  // namespace

ReplaceCommit::ReplaceCommit(std::filesystem::path target, std::vector<std::filesystem::path> watched)
    : target_(std::move(target)), watched_(std::move(watched)) {}

ReplaceCommit::~ReplaceCommit() { discardTemporary(); }

void ReplaceCommit::discardTemporary() {
    if (!committed_) removeQuietly(temporary_);
    temporary_.clear();
}

bool ReplaceCommit::begin() {
    begun_ = false;
    if (target_.empty() || !target_.has_filename()) return false;
    targetKind_ = getFileKind(target_);
    if (!touchable(targetKind_)) return false;
    watchedKinds_.clear();
    for (const auto& path : watched_) {
        const FileKind kind = path.empty() ? FileKind::Unreadable : getFileKind(path);
        if (!touchable(kind)) return false;
        watchedKinds_.push_back(kind);
    }
    begun_ = true;
    return true;
}

bool ReplaceCommit::writeTemporary(std::string_view bytes) {
    if (!begun_ || committed_) return false;
    discardTemporary();
    try {
        if (!writeVerifiedTemporary(target_, bytes, temporary_)) return false;
        if (getFileKind(target_) != targetKind_) return false;
        for (std::size_t i = 0; i < watched_.size(); ++i) {
            if (getFileKind(watched_[i]) != watchedKinds_[i]) return false;
        }
        return true;
    } catch (...) {
        return false;
    }
}

bool ReplaceCommit::commit() {
    if (!begun_ || committed_ || temporary_.empty()) return false;
    if (getFileKind(target_) != targetKind_) return false;
    if (getFileKind(temporary_) != FileKind::RegularFile) return false;
    if (!renameReplacing(temporary_, target_)) return false;
    committed_ = true;
    temporary_.clear();
    return true;
}

bool replaceFileVerified(const std::filesystem::path& target, std::string_view bytes, std::uint64_t maxBytes) {
    if (bytes.empty() || bytes.size() > maxBytes) return false;
    ReplaceCommit commit(target);
    return commit.begin() && commit.writeTemporary(bytes) && commit.commit();
}

}  // namespace tamo::core
