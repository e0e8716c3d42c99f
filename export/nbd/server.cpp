#include "export/nbd/server.h"

#include "export/byte_device.h"
#include "export/connection.h"
#include "export/nbd/handshake.h"
#include "export/nbd/transmission.h"
#include "export/reply_writer.h"
#include "export/stream_reader.h"
#include "platform/wipe.h"

#include <algorithm>
#include <memory>
#include <new>

namespace quilla::nbd {

namespace {

constexpr std::size_t kReceiveSize = 512U << 10;
constexpr std::size_t kReplySize = 1U << 20;

} // namespace

Server::Server(BlockDevice& device, RangeLock& ranges, std::string_view exportName, ServerLimits limits,
               bool isReadOnly)
    : StreamServer(device, exportName.substr(0, exportName.find('-')), limits), ranges_(ranges),
      nameLength_(std::min(exportName.size(), kMaxNameLength)), isReadOnly_(isReadOnly) {
    std::copy_n(exportName.begin(), nameLength_, name_.begin());
}

Server::~Server() {
    Stop();
    Wipe(name_);
}

void Server::Serve(Connection& connection) {
    // Pages that are never touched take no memory, so every connection gets buffers of full size.
    const std::unique_ptr<std::byte[]> buffers(new (std::nothrow) std::byte[kReceiveSize + kReplySize]);
    if (buffers)
        ServeClient(connection, {buffers.get(), kReceiveSize}, {buffers.get() + kReceiveSize, kReplySize});
}

void Server::ServeClient(Connection& connection, std::span<std::byte> received,
                         std::span<std::byte> gathered) {
    Socket& stream = connection.Stream();
    StreamReader reader(stream, received);
    ReplyWriter replies(stream, gathered);
    Handshake handshake(
        stream, reader, replies,
        {.name = {name_.data(), nameLength_}, .size = Device().Size(), .isReadOnly = isReadOnly_});
    if (!handshake.Run(Limits().handshakeMilliseconds)) {
        if (handshake.Refusal() != nullptr)
            TellRefusal(handshake.Refusal());
        return;
    }
    if (!connection.Attach())
        return;
    stream.SetTimeout(0);
    if (Limits().looksBeforeWaiting)
        stream.LookBeforeWaiting();
    ByteDevice device(Device(), ranges_);
    connection.saidGoodbye = Transmission(reader, replies, device, Phase(), isReadOnly_).Run();
    stream.FinishSending();
}

} // namespace quilla::nbd
