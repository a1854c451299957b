#include "verified_create.h"

#include "temporary_name.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

namespace tamo::core {

CreatedTemporary createNewTemporary(const std::filesystem::path& target, std::string_view marker) {
    if (target.empty() || !target.has_filename()) return {};
    for (unsigned attempt = 0; attempt < kTemporaryAttempts; ++attempt) {
        std::filesystem::path candidate = temporaryPathFor(target, marker, attempt);
        const int raw = ::open(candidate.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY, 0666);
        if (raw < 0) {
            if (errno == EEXIST) continue;
            return {};
        }
        CreatedTemporary created{UniqueFd(raw), std::move(candidate)};
        struct stat st {};
        if (::fstat(created.fd.get(), &st) != 0 || !S_ISREG(st.st_mode)) {
            created.fd.reset();
            removeQuietly(created.path);
            return {};
        }
        return created;
    }
    return {};
}

}  // namespace tamo::core
