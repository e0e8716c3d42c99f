#include "platform/file.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace quilla {

namespace {

static_assert(sizeof(off_t) == sizeof(std::uint64_t), "positions in a file are 64-bit");

int OpenFlags(FileAccess access, FileCreation creation) {
    const int direction = access == FileAccess::Read    ? O_RDONLY
                          : access == FileAccess::Write ? O_WRONLY
                                                        : O_RDWR;
    return direction | O_CLOEXEC | (creation == FileCreation::CreateNew ? O_CREAT | O_EXCL : 0);
}

/// A block device is opened alone by asking the kernel for it, which then neither mounts it nor gives it
/// away; and refuses with EBUSY when somebody has it so already.
int DeviceFlags(const char* path, FileAccess access, FileSharing sharing) {
    struct stat status {};
    const bool isShared = access == FileAccess::Read && sharing == FileSharing::Read;
    return !isShared && stat(path, &status) == 0 && S_ISBLK(status.st_mode) ? O_EXCL : 0;
}

bool IsNoFolder(int descriptor) {
    struct stat status {};
    return fstat(descriptor, &status) == 0 && !S_ISDIR(status.st_mode);
}

/// Sharing by advisory locks: readers that let others read share one, everybody else wants the file alone.
/// Locks of the open file description are record locks (fcntl) that no other descriptor of the process can
/// drop; programs under Wine lock the same way. Where the system has none, flock serves.
bool TakeShare(int descriptor, FileAccess access, FileSharing sharing) {
    const bool isShared = access == FileAccess::Read && sharing == FileSharing::Read;
#ifdef F_OFD_SETLK
    struct flock lock {};
    // A descriptor that cannot write may only share; it keeps writers out all the same.
    lock.l_type = static_cast<short>(access == FileAccess::Read ? F_RDLCK : F_WRLCK);
    lock.l_whence = SEEK_SET;
    if (fcntl(descriptor, F_OFD_SETLK, &lock) == 0)
        return true;
    if (errno != EINVAL)
        return false;
#endif
    return flock(descriptor, (isShared ? LOCK_SH : LOCK_EX) | LOCK_NB) == 0;
}

#ifdef O_TMPFILE
/// The folder that a path names a file in, as a path.
void CopyFolder(const char* path, std::span<char> folder) {
    const char* const slash = std::strrchr(path, '/');
    if (slash == nullptr)
        std::snprintf(folder.data(), folder.size(), ".");
    else
        std::snprintf(folder.data(), folder.size(), "%.*s", static_cast<int>(slash - path) + 1, path);
}
#endif

} // namespace

File File::Open(const PathUnit* path, FileAccess access, FileSharing sharing, FileCreation creation) {
    File file;
    const int flags = OpenFlags(access, creation) | DeviceFlags(path, access, sharing);
    file.handle_ = open(path, flags, S_IRUSR | S_IWUSR);
    if (file.IsOpen() && !(IsNoFolder(file.handle_) && TakeShare(file.handle_, access, sharing)))
        file.Close();
    return file;
}

/// One without a name, which the system gives up with its last descriptor; some file systems have none.
File File::CreateTransient(const PathUnit* path) {
    File file;
#ifdef O_TMPFILE
    char folder[PATH_MAX];
    CopyFolder(path, folder);
    file.handle_ = open(folder, O_TMPFILE | O_WRONLY | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (file.IsOpen())
        return file;
#endif
    return Open(path, FileAccess::Write, FileSharing::None, FileCreation::CreateNew);
}

bool File::Keep(const PathUnit* path) const {
    struct stat status {};
    if (fstat(handle_, &status) != 0)
        return false;
    if (status.st_nlink > 0)
        return true;
    char own[32]; // the kernel's name for the descriptor: linking it needs no privilege, unlike AT_EMPTY_PATH
    std::snprintf(own, sizeof(own), "/proc/self/fd/%d", handle_);
    return linkat(AT_FDCWD, own, AT_FDCWD, path, AT_SYMLINK_FOLLOW) == 0;
}

void File::Remove(const PathUnit* path) {
    const int error = errno;
    unlink(path);
    errno = error;
}

bool File::IsSameFile(const PathUnit* one, const PathUnit* other) {
    struct stat first {};
    struct stat second {};
    return stat(one, &first) == 0 && stat(other, &second) == 0 && first.st_dev == second.st_dev &&
           first.st_ino == second.st_ino;
}

void File::Close() {
    if (IsOpen()) {
        const int error = errno;
        close(std::exchange(handle_, kNone));
        errno = error;
    }
}

Transfer File::ReadAt(std::uint64_t position, std::span<std::byte> buffer) const {
    std::size_t done = 0;
    while (done < buffer.size()) {
        const ssize_t count =
            pread(handle_, buffer.data() + done, buffer.size() - done, static_cast<off_t>(position + done));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return {.succeeded = false, .bytes = done};
        if (count == 0)
            break;
        done += static_cast<std::size_t>(count);
    }
    return {.succeeded = true, .bytes = done};
}

Transfer File::WriteAt(std::uint64_t position, std::span<const std::byte> buffer) const {
    std::size_t done = 0;
    while (done < buffer.size()) {
        const ssize_t count =
            pwrite(handle_, buffer.data() + done, buffer.size() - done, static_cast<off_t>(position + done));
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return {.succeeded = false, .bytes = done};
        done += static_cast<std::size_t>(count);
    }
    return {.succeeded = true, .bytes = done};
}

bool File::GetSize(std::uint64_t& size) const {
    const off_t end = lseek(handle_, 0, SEEK_END); // also right for block devices, where fstat reports 0
    size = end < 0 ? 0 : static_cast<std::uint64_t>(end);
    return end >= 0;
}

bool File::IsIntact(std::uint64_t size) const {
    struct stat status {};
    if (fstat(handle_, &status) != 0)
        return false;
    return !S_ISREG(status.st_mode) ||
           (status.st_nlink > 0 && static_cast<std::uint64_t>(status.st_size) >= size);
}

bool File::SetSize(std::uint64_t size) const {
    return ftruncate(handle_, static_cast<off_t>(size)) == 0;
}

bool File::Flush() const {
    return fdatasync(handle_) == 0;
}

} // namespace quilla
