#include "linux/nbd_drive.h"

#include "linux/descriptor.h"
#include "linux/runtime_folder.h"
#include "linux/unix_address.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <span>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace quilla {

namespace {

/// Only the user may open the socket from the moment that it takes connections.
Listener ListenAt(const std::string& path) {
    Listener listener;
    UnixAddress address;
    Descriptor socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    unlink(path.c_str()); // the lock on the data file is ours: whoever made it is dead
    if (address.Fill(path) && bind(socket_.Get(), address.Get(), address.Size()) == 0 &&
        chmod(path.c_str(), 0600) == 0)
        static_cast<void>(listener.Adopt(socket_.Release()));
    return listener;
}

} // namespace

NbdDrive::NbdDrive(const ServiceOrder& order, BlockDevice& device)
    : path_(NbdPath(order.volume.id)), server_(device, ranges_, {}, {}, order.volume.isReadOnly) {}

NbdDrive::~NbdDrive() {
    Abandon();
}

ExitCode NbdDrive::Mount(int ended) {
    ended_ = ended;
    if (server_.Start(ListenAt(path_)))
        return ExitCode::Done;
    return Fail(ExitCode::SystemLacks, "cannot listen at %s: %s", path_.c_str(), std::strerror(errno));
}

int NbdDrive::Dismount() {
    if (server_.ConnectedClients() > 0)
        return EBUSY;
    Detach();
    return 0;
}

/// Completes what clients have asked for and leaves them.
void NbdDrive::Detach() {
    Abandon();
    const std::uint64_t one = 1;
    static_cast<void>(!write(ended_, &one, sizeof(one)));
}

void NbdDrive::Abandon() {
    unlink(path_.c_str());
    static_cast<void>(server_.Stop()); // the service flushes once more, and tells
}

void NbdDrive::Describe(MountState& state) const {
    std::array<std::uint32_t, StreamServer::kMaxConnections> peers{};
    const std::size_t count = server_.AttachedPeers(peers);
    state.place = "nbd+unix:///?socket=" + path_;
    std::ranges::sort(std::span(peers).first(count));
    for (const std::uint32_t peer : std::span(peers).first(count)) // some clients have many connections
        if (state.clients.empty() || state.clients.back() != static_cast<int>(peer))
            state.clients.push_back(static_cast<int>(peer));
}

} // namespace quilla
