#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tamo::shell {

// Not empty, not absolute, no root, no ".." component; backslash and slash
// both separate, so a path written elsewhere can't climb out either.
bool isSafeRelativePath(std::string_view relative);

// The relativePath written for a song: both paths made lexically normal, the
// song's path relative to the folder, kept only when it is safe. A name with
// a backslash is left out, since a reader takes the backslash as a separator.
std::optional<std::string> storedRelativePath(std::string_view songPath, std::string_view folder);

// storedRelativePath for many songs under one folder: the folder is made
// normal once, and a plain song path under it is cut by string compare.
class RelativePathMaker {
public:
    explicit RelativePathMaker(std::string_view folder);
    std::optional<std::string> relativeOf(std::string_view songPath) const;

private:
    std::string folder_;
    std::string prefix_;  // the normal folder with one trailing slash
    bool plain_ = false;
};

// True for an absolute path with no empty, "." or ".." component and no
// trailing slash: one that lexical normalising would leave as it is.
bool isPlainAbsolutePath(std::string_view path);

// folder joined with a stored relative path (either separator), lexically
// normal: the library key of a song that moved with its folder.
std::string joinStoredRelative(std::string_view folder, std::string_view relative);

// songPath relative to folder through weakly-canonical forms, so that links
// and "." or ".." in either spelling don't matter; empty unless safe.
std::optional<std::string> canonicalRelativePath(std::string_view songPath, std::string_view folder);

}  // namespace tamo::shell
