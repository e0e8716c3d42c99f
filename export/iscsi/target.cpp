#include "export/iscsi/target.h"

#include "export/byte_device.h"
#include "export/connection.h"
#include "export/iscsi/login.h"
#include "export/iscsi/pdu_channel.h"
#include "export/iscsi/session.h"
#include "platform/wipe.h"

#include <array>
#include <cstdio>
#include <memory>
#include <new>
#include <optional>

namespace quilla::iscsi {

namespace {

constexpr std::size_t kReceiveSize = 1U << 20;
constexpr std::size_t kReplySize = 1U << 20;

static_assert(2 * StreamServer::kMaxConnections <= RangeLock::kMaxHolders,
              "each connection of each protocol may hold a range");

} // namespace

/// Who leaves, and what.
struct Target::Visit {
    Target& target;
    Connection& connection;

    static void Leave(void* context) {
        const auto* const visit = static_cast<const Visit*>(context);
        visit->target.sessions_.Leave(visit->connection);
        visit->connection.Detach();
    }
};

Target::Target(BlockDevice& device, RangeLock& ranges, const TargetKeys& keys, std::string_view label,
               ServerLimits limits, bool isReadOnly)
    : StreamServer(device, label, limits), ranges_(ranges), keys_(keys) {
    unit_.identity = keys.identity;
    unit_.isReadOnly = isReadOnly;
}

Target::~Target() {
    Stop();
    Wipe(keys_);
}

void Target::Serve(Connection& connection) {
    // Pages that are never touched take no memory, so every connection gets buffers of full size.
    constexpr std::size_t kSize = kReceiveSize + kReplySize + DeviceServer::kScratchSize;
    const std::unique_ptr<std::byte[]> memory(new (std::nothrow) std::byte[kSize]);
    if (memory)
        ServeClient(connection, {memory.get(), kSize});
    sessions_.Leave(connection);
}

void Target::ServeClient(Connection& connection, std::span<std::byte> memory) {
    Socket& stream = connection.Stream();
    StreamReader reader(stream, memory.first(kReceiveSize));
    ReplyWriter replies(stream, memory.subspan(kReceiveSize, kReplySize));
    PduChannel channel(stream, reader, replies, Phase());
    const TargetIdentity identity = {
        .target = keys_.name.data(), .user = kTargetUser, .secret = keys_.secret.data()};
    Login login(channel, identity);
    if (login.Run(Limits().handshakeMilliseconds) && Admit(connection, login))
        RunSession(connection, channel, login, memory.last(DeviceServer::kScratchSize));
    if (login.Refusal() != nullptr)
        TellRefusal(login.Refusal());
    stream.FinishSending();
}

/// Gives an initiator that has proved itself its place, and tells it so.
bool Target::Admit(Connection& connection, Login& login) {
    if (login.IsDiscovery())
        return login.Conclude(sessions_.NewHandle());
    const std::uint16_t handle = sessions_.Enter(login.Port(), connection, Limits().stopMilliseconds);
    if (handle == 0)
        login.Refuse(LoginStatus::OutOfResources);
    return handle != 0 && connection.Attach() && login.Conclude(handle);
}

void Target::RunSession(Connection& connection, PduChannel& channel, const Login& login,
                        std::span<std::byte> scratch) {
    std::array<char, 32> address;
    std::snprintf(address.data(), address.size(), "127.0.0.1:%u,1", unsigned{Port()});
    const SessionContext context = {
        .target = keys_.name.data(), .address = address.data(), .connectionNumber = login.ConnectionNumber()};
    ByteDevice bytes(Device(), ranges_);
    std::optional<DeviceServer> device;
    if (!login.IsDiscovery())
        device.emplace(bytes, unit_, scratch, Phase());
    const std::unique_ptr<Session> session(
        new (std::nothrow) Session(channel, login.Terms(), context, device ? &*device : nullptr));
    if (device && Limits().looksBeforeWaiting)
        connection.Stream().LookBeforeWaiting();
    Visit visit{*this, connection};
    if (session)
        connection.saidGoodbye = session->Run(Visit::Leave, &visit);
    if (device)
        WipeMemory(scratch.data(), scratch.size());
}

} // namespace quilla::iscsi
