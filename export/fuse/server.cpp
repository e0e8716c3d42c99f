// The threads on the device: each takes requests off the kernel's queue, one at a time, into a buffer of its
// own. With rings, little is left for them: the first request and what has no answer.

#include "export/fuse/server.h"

#include "export/fuse/reply.h"
#include "export/fuse/rings.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <sys/uio.h>
#include <unistd.h>

namespace quilla::fuse {

/// A request from the device.
class Server::DeviceReply final : public Reply {
  public:
    DeviceReply(int to, Buffer& buffer, std::size_t size)
        : Reply(Header(buffer), {buffer.Request() + sizeof(fuse_in_header), size - sizeof(fuse_in_header)},
                buffer.Payload(kMaxTransfer), size - std::min(size, Buffer::kWriteHead)),
          descriptor_(to) {}

  private:
    static fuse_in_header Header(Buffer& buffer) {
        fuse_in_header header;
        std::memcpy(&header, buffer.Request(), sizeof(header));
        return header;
    }

    /// A client that has gone meanwhile makes the kernel refuse the answer, which is then nobody's.
    void Write(const fuse_out_header& head, std::span<const std::byte> answer) override {
        const iovec parts[] = {{.iov_base = const_cast<fuse_out_header*>(&head), .iov_len = sizeof(head)},
                               {.iov_base = const_cast<std::byte*>(answer.data()), .iov_len = answer.size()}};
        static_cast<void>(writev(descriptor_, parts, answer.empty() ? 1 : 2));
    }

    const int descriptor_;
};

Server::Server(BlockDevice& device, const Settings& settings) : device_(device), settings_(settings) {}

Server::~Server() {
    Join();
}

bool Server::Start(int descriptor, int ended) {
    descriptor_ = descriptor;
    ended_ = ended;
    rings_.reset(new (std::nothrow) Rings(*this));
    if (!rings_)
        return false;
    for (Worker& worker : workers_) {
        worker.server = this;
        worker.buffer.reset(new (std::nothrow) Buffer);
        if (!worker.buffer)
            return false;
    }
    // A big read starts the helpers of the device and brings in the pages of all that a request touches.
    const std::uint64_t size = std::min<std::uint64_t>(kMaxTransfer, device_.Size());
    static_cast<void>(device_.Read(0, workers_[0].buffer->Payload(static_cast<std::size_t>(size))));
    return std::ranges::all_of(workers_,
                               [](Worker& worker) { return worker.thread.Start(RunWorker, &worker); });
}

void Server::Join() {
    for (Worker& worker : workers_)
        worker.thread.Join();
    rings_.reset();
}

void Server::RunWorker(void* worker) {
    auto& self = *static_cast<Worker*>(worker);
    self.server->Serve(*self.buffer);
    self.server->SignalEnd();
}

void Server::SignalEnd() const {
    const std::uint64_t one = 1;
    static_cast<void>(!write(ended_, &one, sizeof(one))); // its counter cannot overflow
}

void Server::Serve(Buffer& buffer) {
    for (;;) {
        const ssize_t count = read(descriptor_, buffer.Request(), Buffer::kRequestSize);
        if (count >= static_cast<ssize_t>(sizeof(fuse_in_header))) {
            DeviceReply reply(descriptor_, buffer, static_cast<std::size_t>(count));
            Answer(reply);
            reply.Finish();
        } else if (count < 0 && errno != EINTR && errno != ENOENT && errno != EAGAIN) {
            return; // ENODEV: the mount has ended
        }
    }
}

} // namespace quilla::fuse
