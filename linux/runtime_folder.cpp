#include "linux/runtime_folder.h"

#include <cstdlib>
#include <dirent.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace quilla {

namespace {

constexpr char kControlSuffix[] = ".control";

std::string FolderName() {
    if (geteuid() == 0)
        return "/run/quilla";
    const char* const session = std::getenv("XDG_RUNTIME_DIR");
    if (session != nullptr && session[0] == '/' && access(session, W_OK | X_OK) == 0)
        return std::string(session) + "/quilla";
    return "/tmp/quilla-" + std::to_string(geteuid());
}

/// A folder that the user owns and nobody else can write or read; a link does not count.
bool IsPrivate(const std::string& folder) {
    struct stat status {};
    return lstat(folder.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == geteuid() &&
           (status.st_mode & 077) == 0;
}

} // namespace

std::string RuntimeFolder() {
    const std::string folder = FolderName();
    mkdir(folder.c_str(), 0700);
    return IsPrivate(folder) ? folder : std::string();
}

std::string ControlPath(const std::string& id) {
    return RuntimeFolder() + "/" + id + kControlSuffix;
}

std::string StatePath(const std::string& id) {
    return RuntimeFolder() + "/" + id + ".state";
}

std::string DrivePath(const std::string& id) {
    return RuntimeFolder() + "/" + id + ".drive";
}

std::string NbdPath(const std::string& id) {
    return RuntimeFolder() + "/" + id + ".nbd";
}

std::vector<std::string> KnownIds() {
    std::vector<std::string> ids;
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(RuntimeFolder().c_str()), closedir);
    if (!folder)
        return ids;
    while (const dirent* const entry = readdir(folder.get())) {
        const std::string name(entry->d_name);
        if (name.ends_with(kControlSuffix))
            ids.push_back(name.substr(0, name.size() - (sizeof(kControlSuffix) - 1)));
    }
    return ids;
}

} // namespace quilla
