#include "export/nbd/connection.h"

#include "export/byte_device.h"
#include "export/nbd/handshake.h"
#include "export/nbd/reply_writer.h"
#include "export/nbd/stream_reader.h"
#include "export/nbd/transmission.h"

#include <new>

namespace quilla::nbd {

namespace {

constexpr std::size_t kReceiveSize = 512U << 10;
constexpr std::size_t kReplySize = 1U << 20;

} // namespace

void Connection::Dismiss() {
    state = State::Dismissed;
    socket_.Shutdown();
}

void Connection::RunThread(void* connection) {
    static_cast<Connection*>(connection)->Run();
}

void Connection::Run() {
    {
        // Pages that are never touched take no memory, so every connection gets buffers of full size.
        const std::unique_ptr<std::byte[]> buffers(new (std::nothrow) std::byte[kReceiveSize + kReplySize]);
        if (buffers)
            Serve({buffers.get(), kReceiveSize}, {buffers.get() + kReceiveSize, kReplySize});
    }
    server_.Finish(*this);
}

void Connection::Serve(std::span<std::byte> received, std::span<std::byte> gathered) {
    StreamReader reader(socket_, received);
    ReplyWriter replies(socket_, gathered);
    Handshake handshake(socket_, reader, replies, server_.TheExport());
    if (!handshake.Run(server_.limits_.handshakeMilliseconds)) {
        if (handshake.Refusal() != nullptr)
            server_.TellRefusal(handshake.Refusal());
        return;
    }
    if (!server_.Attach(*this))
        return;
    socket_.SetTimeout(0);
    ByteDevice device(server_.device_, server_.ranges_);
    Transmission transmission(reader, replies, device, server_.phase_);
    saidGoodbye = transmission.Run();
    socket_.FinishSending();
}

} // namespace quilla::nbd
