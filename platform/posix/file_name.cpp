#include "platform/file_name.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quilla {

namespace {

/// A rename is on the medium once the folder is. Some file systems cannot do that.
void FlushFolderOf(const char* path) {
    char folder[PATH_MAX];
    const char* const slash = std::strrchr(path, '/'); // the path is absolute
    std::snprintf(folder, sizeof(folder), "%.*s", static_cast<int>(slash - path) + 1, path);
    const int descriptor = open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0)
        return;
    fsync(descriptor);
    close(descriptor);
}

} // namespace

bool ResolvePath(const PathUnit* path, std::span<PathUnit> resolved) {
    static_assert(kLongestPath >= PATH_MAX);
    return realpath(path, resolved.data()) != nullptr;
}

/// The owner is set only where it differs: who may not give files away keeps his own anyway.
bool CopyFileProperties(const PathUnit* from, const PathUnit* to) {
    struct stat old {};
    struct stat made {};
    if (stat(from, &old) != 0 || stat(to, &made) != 0)
        return false;
    const bool sameOwner = old.st_uid == made.st_uid && old.st_gid == made.st_gid;
    return (sameOwner || chown(to, old.st_uid, old.st_gid) == 0) && chmod(to, old.st_mode & 07777) == 0;
}

bool RenameOver(const PathUnit* from, const PathUnit* to) {
    if (rename(from, to) != 0)
        return false;
    FlushFolderOf(to); // if not, the new file is in place all the same
    return true;
}

} // namespace quilla
