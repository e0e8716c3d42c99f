// Finds the processes that keep a mounted volume busy, in /proc.

#include "linux/holders.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace quilla {

namespace {

using Folder = std::unique_ptr<DIR, int (*)(DIR*)>;

/// What a process uses may lie on a disk that hangs, and nobody else's disk is to hold this up: the system is
/// asked for what it knows without asking that disk.
bool IsOn(const std::string& path, dev_t device) {
    struct statx status {};
    return statx(AT_FDCWD, path.c_str(), AT_STATX_DONT_SYNC, STATX_TYPE, &status) == 0 &&
           makedev(status.stx_dev_major, status.stx_dev_minor) == device;
}

bool HasOpenFile(const std::string& process, dev_t device) {
    const Folder files(opendir((process + "/fd").c_str()), closedir);
    while (const dirent* const entry = files ? readdir(files.get()) : nullptr)
        if (entry->d_name[0] != '.' && IsOn(process + "/fd/" + entry->d_name, device))
            return true;
    return false;
}

std::string NameOf(const std::string& process) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen((process + "/comm").c_str(), "re"),
                                                               std::fclose);
    char name[64] = "?";
    if (file && std::fgets(name, sizeof(name), file.get()) == nullptr)
        name[0] = '\0';
    std::string text(name);
    if (!text.empty() && text.back() == '\n')
        text.pop_back();
    return text;
}

} // namespace

std::vector<Holder> FindHolders(const MountState& state) {
    std::vector<Holder> holders;
    for (const int client : state.clients)
        holders.push_back({.process = client, .name = NameOf("/proc/" + std::to_string(client))});
    struct stat status {};
    const Folder processes(opendir("/proc"), closedir);
    if (!processes || stat(state.folder.c_str(), &status) != 0)
        return holders;
    while (const dirent* const entry = readdir(processes.get())) {
        const int number = static_cast<int>(std::strtol(entry->d_name, nullptr, 10)); // 0 for a word
        const std::string process = std::string("/proc/") + entry->d_name;
        constexpr const char* kLinks[] = {"/cwd", "/root", "/exe"};
        if (number <= 0 || number == getpid())
            continue;
        if (HasOpenFile(process, status.st_dev) || std::ranges::any_of(kLinks, [&](const char* link) {
                return IsOn(process + link, status.st_dev);
            }))
            holders.push_back({.process = number, .name = NameOf(process)});
    }
    return holders;
}

} // namespace quilla
