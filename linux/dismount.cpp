// quilla dismount

#include "linux/command.h"
#include "linux/control.h"
#include "linux/fuse_mount.h"
#include "linux/holders.h"
#include "linux/runtime_folder.h"
#include "linux/udisks.h"
#include "linux/volume.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <poll.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

namespace quilla {

namespace {

constexpr Option kOptions[] = {{.name = "all"}, {.name = "force"}};

constexpr char kHelp[] =
    "Usage: quilla dismount VOLUME.raw | DIRECTORY | --all [--force]\n"
    "Unmounts, waits until everything is written and the service has ended. What is in use stays mounted, "
    "and\n"
    "the processes that use it are named.\n\n"
    "  --all    every volume that you have mounted\n"
    "  --force  ends the service even if it hangs; data that is not written yet is lost\n";

struct Target {
    std::string id;
    MountState state;
};

/// What a path leads to may hang, so only its parent is looked at.
std::string Absolute(std::string path) {
    while (path.size() > 1 && path.ends_with('/'))
        path.pop_back();
    const std::size_t slash = path.rfind('/');
    const std::string parent = slash == path.npos ? "." : path.substr(0, std::max<std::size_t>(slash, 1));
    std::array<char, PATH_MAX> whole;
    if (path == "." || path == ".." || realpath(parent.c_str(), whole.data()) == nullptr)
        return path;
    return std::string(whole.data()) + "/" + (slash == path.npos ? path : path.substr(slash + 1));
}

bool IsNamed(const MountState& state, const std::string& path) {
    return state.folder == path || state.place == path || state.volume == path;
}

/// What was mounted under the very path that is wanted is found without a look at the path, which may hang.
std::vector<Target> FindTargets(const char* wanted) {
    std::vector<Target> all;
    for (const std::string& known : KnownIds())
        all.push_back({.id = known, .state = NotedState(known)});
    if (wanted == nullptr)
        return all;
    std::vector<Target> named;
    const auto take = [&](auto isWanted) {
        if (named.empty())
            std::ranges::copy_if(all, std::back_inserter(named), isWanted);
    };
    take([&](const Target& target) { return IsNamed(target.state, wanted); });
    if (!named.empty())
        return named;
    const std::string path = Absolute(wanted);
    take([&](const Target& target) { return IsNamed(target.state, path); });
    const std::string id = named.empty() ? FileId(wanted) : std::string();
    take([&](const Target& target) { return target.id == id; });
    return named;
}

void NameHolders(const Target& target) {
    MountState now = target.state; // who is connected changes
    static_cast<void>(AskState(target.id, now));
    Warn("%s is in use and stays mounted", now.place.c_str());
    for (const Holder& holder : FindHolders(now))
        std::fprintf(stderr, "  %d %s\n", holder.process, holder.name.c_str());
}

void SetPatience(const Descriptor& connection, time_t seconds) {
    const timeval limit{.tv_sec = seconds, .tv_usec = 0}; // 0 = forever
    setsockopt(connection.Get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
}

/// Waits until the service has ended, which closes the connection. False if it could not write everything.
bool AwaitEnd(const Descriptor& connection) {
    SetPatience(connection, 0);
    if (ReceiveMessage(connection.Get()) != kToldLoss)
        return true;
    static_cast<void>(ReceiveMessage(connection.Get()));
    return false;
}

/// What the disk service has mounted for a user, only it can unmount.
int UnmountLeft(const MountState& state) {
    return geteuid() == 0 || state.device.empty() ? Unmount(state.folder, true)
                                                  : udisks::Unmount(state.device, true);
}

/// Takes away what a service left that is dead.
void CleanUp(const Target& target) {
    const std::string& folder = target.state.folder;
    if (IsStillMounted(target.state) && UnmountLeft(target.state) == 0)
        Warn("%s has been unmounted; check the file system", folder.c_str());
    if (const std::string inner = DrivePath(target.id); IsMountPoint(inner))
        static_cast<void>(Unmount(inner, true));
    RemoveTraces(target.id);
}

ExitCode TellDead(const Target& target) {
    CleanUp(target);
    return Fail(ExitCode::BadFile, "the service of %s had ended already", target.state.volume.c_str());
}

/// Whether the service has closed its end: it ended before it could answer.
bool HasHungUp(const Descriptor& connection) {
    pollfd state{.fd = connection.Get(), .events = 0, .revents = 0};
    return poll(&state, 1, 0) == 1 && (state.revents & POLLHUP) != 0;
}

ExitCode TellHung(const Target& target, const std::string& answer) {
    return Fail(ExitCode::Busy, "the service of %s does not answer%s%s; quilla dismount --force ends it",
                target.state.volume.c_str(), answer.empty() ? "" : ": ", answer.c_str());
}

ExitCode Dismount(const Target& target) {
    const char* const volume = target.state.volume.c_str();
    const Descriptor connection = ConnectControl(target.id);
    if (!connection.IsOpen() && errno == EAGAIN)
        return TellHung(target, "");
    if (!connection.IsOpen())
        return TellDead(target);
    const bool isSent = SendMessage(connection.Get(), kAskDismount);
    const std::string answer = isSent ? ReceiveMessage(connection.Get()) : std::string();
    if (answer.empty() && HasHungUp(connection))
        return TellDead(target);
    if (answer == kAnswerBusy) {
        NameHolders(target);
        return ExitCode::Busy;
    }
    if (answer != kAnswerDone)
        return TellHung(target, answer);
    return AwaitEnd(connection)
               ? ExitCode::Done
               : Fail(ExitCode::BadFile, "%s could not be written to the end: data may be lost", volume);
}

/// Frees all who wait for the service: their requests fail. Where nobody has mounted the control file system
/// and this process may not, the kill has to do it.
void AbortConnection(unsigned number) {
    constexpr char kFolder[] = "/sys/fs/fuse/connections";
    const std::string path = std::string(kFolder) + "/" + std::to_string(number) + "/abort";
    Descriptor file(open(path.c_str(), O_WRONLY | O_CLOEXEC));
    const bool isMountedHere = !file.IsOpen() && mount("fusectl", kFolder, "fusectl", 0, nullptr) == 0;
    if (isMountedHere)
        file = Descriptor(open(path.c_str(), O_WRONLY | O_CLOEXEC));
    static_cast<void>(!write(file.Get(), "1", 1));
    file.Close();
    if (isMountedHere)
        umount2(kFolder, MNT_DETACH);
}

/// The service ends at once, unless the kernel keeps it until the disk under the data file answers.
ExitCode DismountByForce(const Target& target) {
    constexpr time_t kSeconds = 5;
    const Descriptor connection = ConnectControl(target.id);
    ucred peer{};
    socklen_t size = sizeof(peer);
    if (!connection.IsOpen() && errno != EAGAIN)
        return TellDead(target);
    if (getsockopt(connection.Get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0)
        peer.pid = 0;
    if (target.state.connection != 0)
        AbortConnection(target.state.connection);
    if (peer.pid > 0)
        kill(peer.pid, SIGKILL);
    SetPatience(connection, kSeconds);
    while (!ReceiveMessage(connection.Get()).empty()) {
    }
    const bool hasEnded = HasHungUp(connection);
    CleanUp(target);
    if (hasEnded)
        return ExitCode::Done;
    return Fail(ExitCode::Busy, "%s is freed, but its service (process %d) ends only when its disk answers",
                target.state.volume.c_str(), peer.pid > 0 ? peer.pid : target.state.process);
}

ExitCode Run(const Arguments& arguments) {
    const bool isForAll = arguments.Has("all");
    if (isForAll != arguments.Operands().empty())
        return Fail(ExitCode::Usage, "name one volume or folder, or say --all");
    const char* const wanted = isForAll ? nullptr : arguments.Operands()[0];
    const std::vector<Target> targets = FindTargets(wanted);
    if (targets.empty() && !isForAll)
        return Fail(ExitCode::BadFile, "%s is not mounted by quilla", wanted);
    ExitCode worst = ExitCode::Done;
    for (const Target& target : targets) {
        const ExitCode code = arguments.Has("force") ? DismountByForce(target) : Dismount(target);
        worst = std::max(worst, code);
    }
    return worst;
}

} // namespace

constinit const Command kDismountCommand = {
    .name = "dismount", .options = kOptions, .minOperands = 0, .maxOperands = 1, .help = kHelp, .run = Run};

} // namespace quilla
