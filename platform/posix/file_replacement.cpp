#include "platform/file_replacement.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quilla {

namespace {

/// The owner is set only where it differs: who may not give files away keeps his own anyway.
bool CopyPermissions(const char* from, const char* to) {
    struct stat old {};
    struct stat made {};
    if (stat(from, &old) != 0 || stat(to, &made) != 0)
        return false;
    const bool sameOwner = old.st_uid == made.st_uid && old.st_gid == made.st_gid;
    return (sameOwner || chown(to, old.st_uid, old.st_gid) == 0) && chmod(to, old.st_mode & 07777) == 0;
}

/// A rename is on the medium once the folder is.
bool FlushFolderOf(const char* path) {
    char folder[PATH_MAX];
    const char* const slash = std::strrchr(path, '/'); // the path is absolute
    std::snprintf(folder, sizeof(folder), "%.*s", static_cast<int>(slash - path) + 1, path);
    const int descriptor = open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const bool flushed = descriptor >= 0 && fsync(descriptor) == 0;
    if (descriptor >= 0)
        close(descriptor);
    return flushed;
}

} // namespace

FileReplacement::FileReplacement(const PathUnit* path, File& old) : old_(old) {
    static_assert(kLongestPath >= PATH_MAX);
    if (realpath(path, path_) == nullptr) // a link stays one
        return;
    std::snprintf(newPath_, sizeof(newPath_), "%s.quilla-new", path_);
    unlink(newPath_);
    new_ = File::Open(newPath_, FileAccess::Write, FileSharing::None, FileCreation::CreateNew);
    isBeside_ = new_.IsOpen();
    if (isBeside_ && !CopyPermissions(path_, newPath_))
        new_.Close();
}

FileReplacement::~FileReplacement() {
    new_.Close();
    if (isBeside_)
        File::Remove(newPath_);
}

bool FileReplacement::PutInPlace() {
    if (!new_.Flush())
        return false;
    new_.Close();
    if (rename(newPath_, path_) != 0)
        return false;
    isBeside_ = false;
    old_.Close();                            // its lock kept others out so far
    static_cast<void>(FlushFolderOf(path_)); // some file systems cannot; the new file is in place already
    return true;
}

} // namespace quilla
