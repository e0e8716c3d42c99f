#include "platform/file_name.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace quilla {

namespace {

constexpr char kAccessList[] = "system.posix_acl_access";

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

/// Access lists and what else a file has in extended attributes. Those of the system are not everybody's to
/// set and come with the new file.
bool CopyAttributes(const char* from, const char* to) {
    char names[4096];
    const ssize_t length = listxattr(from, names, sizeof(names));
    if (length < 0)
        return errno == ENOTSUP;
    for (const char* name = names; name < names + length; name += std::strlen(name) + 1) {
        char value[4096];
        const ssize_t size = getxattr(from, name, value, sizeof(value));
        const bool isCopied = size >= 0 && setxattr(to, name, value, static_cast<std::size_t>(size), 0) == 0;
        if (!isCopied && (std::strncmp(name, "user.", 5) == 0 || std::strcmp(name, kAccessList) == 0))
            return false;
    }
    return true;
}

} // namespace

bool ResolvePath(const PathUnit* path, std::span<PathUnit> resolved) {
    static_assert(kLongestPath >= PATH_MAX);
    return realpath(path, resolved.data()) != nullptr;
}

/// The owner is set only where it differs: who may not give files away keeps his own anyway. The permissions
/// come last, as with an access list those of the group are the list's mask: without it the group would get
/// them.
bool CopyFileProperties(const PathUnit* from, const PathUnit* to) {
    struct stat old {};
    struct stat made {};
    if (stat(from, &old) != 0 || stat(to, &made) != 0)
        return false;
    const bool sameOwner = old.st_uid == made.st_uid && old.st_gid == made.st_gid;
    return (sameOwner || chown(to, old.st_uid, old.st_gid) == 0) && CopyAttributes(from, to) &&
           chmod(to, old.st_mode & 07777) == 0;
}

bool RenameOver(const PathUnit* from, const PathUnit* to) {
    if (rename(from, to) != 0)
        return false;
    FlushFolderOf(to); // if not, the new file is in place all the same
    return true;
}

} // namespace quilla
