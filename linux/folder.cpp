#include "linux/folder.h"

#include "linux/fuse_mount.h"

#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <memory>
#include <string_view>
#include <sys/stat.h>

namespace quilla {

namespace {

bool IsEmpty(const std::string& folder) {
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(opendir(folder.c_str()), closedir);
    while (const dirent* const entry = entries ? readdir(entries.get()) : nullptr) {
        const std::string_view name(entry->d_name);
        if (name != "." && name != "..")
            return false;
    }
    return true;
}

} // namespace

ExitCode PrepareFolder(std::string& folder, bool& isMade) {
    const char* const path = folder.c_str();
    struct stat status {};
    isMade = mkdir(path, 0700) == 0;
    if (!isMade && errno != EEXIST)
        return Fail(ExitCode::BadFile, "cannot make the folder %s: %s", path, std::strerror(errno));
    if (IsMountPoint(folder))
        return Fail(ExitCode::Busy, "something is mounted on %s already; name another folder", path);
    if (stat(path, &status) != 0 || !S_ISDIR(status.st_mode))
        return Fail(ExitCode::BadFile, "%s is not a folder; name another place to mount on", path);
    if (!IsEmpty(folder))
        return Fail(ExitCode::BadFile, "%s is not empty; name another place to mount on", path);
    std::array<char, PATH_MAX> whole;
    if (realpath(path, whole.data()) == nullptr)
        return Fail(ExitCode::BadFile, "cannot find %s: %s", path, std::strerror(errno));
    folder = whole.data();
    return ExitCode::Done;
}

} // namespace quilla
