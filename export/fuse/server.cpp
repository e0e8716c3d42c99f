// The threads: each takes requests off the kernel's queue, one at a time, into a buffer of its own.

#include "export/fuse/server.h"

#include "export/fuse/reply.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <unistd.h>

namespace quilla::fuse {

Server::Server(BlockDevice& device, const Settings& settings) : device_(device), settings_(settings) {}

Server::~Server() {
    Join();
}

bool Server::Start(int descriptor, int ended) {
    descriptor_ = descriptor;
    ended_ = ended;
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
}

void Server::RunWorker(void* worker) {
    auto& self = *static_cast<Worker*>(worker);
    self.server->Serve(*self.buffer);
    const std::uint64_t one = 1;
    static_cast<void>(!write(self.server->ended_, &one, sizeof(one))); // its counter cannot overflow
}

void Server::Serve(Buffer& buffer) {
    for (;;) {
        const ssize_t count = read(descriptor_, buffer.Request(), Buffer::kRequestSize);
        if (count >= static_cast<ssize_t>(sizeof(fuse_in_header))) {
            Reply reply(descriptor_, buffer, static_cast<std::size_t>(count));
            Answer(reply);
        } else if (count < 0 && errno != EINTR && errno != ENOENT && errno != EAGAIN) {
            return; // ENODEV: the mount has ended
        }
    }
}

} // namespace quilla::fuse
