#include "linux/fuse_mount.h"

#include "linux/message.h"
#include "linux/tool.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quilla {

namespace {

Descriptor MountAsRoot(const std::string& folder, bool readOnly) {
    Descriptor device(open("/dev/fuse", O_RDWR | O_CLOEXEC));
    if (!device.IsOpen()) {
        Warn("cannot open /dev/fuse: %s; the kernel's module \"fuse\" is needed", std::strerror(errno));
        return {};
    }
    std::array<char, 128> options;
    std::snprintf(options.data(), options.size(), "fd=%d,rootmode=40000,user_id=0,group_id=0", device.Get());
    unsigned long flags = MS_NODEV | MS_NOSUID | MS_NOEXEC | MS_NOATIME;
    if (readOnly)
        flags |= MS_RDONLY;
    if (mount("quilla", folder.c_str(), "fuse.quilla", flags, options.data()) != 0) {
        Warn("cannot mount on %s: %s", folder.c_str(), std::strerror(errno));
        return {};
    }
    return device;
}

/// The descriptor that a message on a socket brings.
Descriptor ReceiveDescriptor(int from) {
    char byte = 0;
    iovec part{.iov_base = &byte, .iov_len = 1};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> room{};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = room.data();
    message.msg_controllen = room.size();
    if (recvmsg(from, &message, MSG_CMSG_CLOEXEC) < 0)
        return {};
    const cmsghdr* const head = CMSG_FIRSTHDR(&message);
    if (head == nullptr || head->cmsg_type != SCM_RIGHTS)
        return {};
    int received = -1;
    std::memcpy(&received, CMSG_DATA(head), sizeof(received));
    return Descriptor(received);
}

/// fusermount3 opens the device, mounts it and hands it over on the socket that _FUSE_COMMFD names.
Descriptor MountAsUser(const std::string& folder, bool readOnly, bool allowRoot) {
    const std::string tool = FindTool("fusermount3");
    if (tool.empty()) {
        TellMissing("fusermount3", "fuse3");
        return {};
    }
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        return {};
    const Descriptor ours(ends[0]);
    Descriptor theirs(ends[1]);
    std::string options = "fsname=quilla,subtype=quilla,nodev,nosuid,noexec";
    options += readOnly ? ",ro" : "";
    // The kernel keeps other users than root out by the modes of folder and file.
    options += allowRoot ? ",allow_other,default_permissions" : "";
    std::string said;
    const int code = RunTool(
        {.words = {tool, "-o", options, "--", folder}, .passed = theirs.Get(), .variable = "_FUSE_COMMFD=3"},
        said);
    theirs.Close();
    if (code != 0) {
        Warn("%s", said.empty() ? "fusermount3 failed" : said.c_str());
        return {};
    }
    return ReceiveDescriptor(ours.Get());
}

} // namespace

Descriptor MountFuse(const std::string& folder, bool readOnly, bool allowRoot) {
    return geteuid() == 0 ? MountAsRoot(folder, readOnly) : MountAsUser(folder, readOnly, allowRoot);
}

int Unmount(const std::string& folder, bool lazily) {
    if (geteuid() == 0)
        return umount2(folder.c_str(), UMOUNT_NOFOLLOW | (lazily ? MNT_DETACH : 0)) == 0 ? 0 : errno;
    std::vector<std::string> words = {FindTool("fusermount3"), "-u"};
    if (lazily)
        words.emplace_back("-z");
    words.insert(words.end(), {"--", folder});
    std::string said;
    if (RunTool({.words = words}, said) == 0)
        return 0;
    return said.find("busy") != said.npos ? EBUSY : EINVAL;
}

bool IsMountPoint(const std::string& folder) {
    struct stat here {};
    struct stat above {};
    if (stat(folder.c_str(), &here) != 0)
        return errno == ENOTCONN; // a mount whose server is dead
    return stat((folder + "/..").c_str(), &above) == 0 && here.st_dev != above.st_dev;
}

bool UsersMayAllowRoot() {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen("/etc/fuse.conf", "re"),
                                                               std::fclose);
    std::array<char, 256> line;
    while (file && std::fgets(line.data(), static_cast<int>(line.size()), file.get()) != nullptr)
        if (std::strncmp(line.data() + std::strspn(line.data(), " \t"), "user_allow_other", 16) == 0)
            return true;
    return false;
}

} // namespace quilla
