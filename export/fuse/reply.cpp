#include "export/fuse/reply.h"

#include "platform/wipe.h"

#include <sys/mman.h>

namespace quilla::fuse {

Server::Buffer::Buffer() {
    static_cast<void>(mlock(bytes, sizeof(bytes))); // a small limit may refuse
    std::memset(bytes, 0, sizeof(bytes));           // brings the pages in
}

Server::Buffer::~Buffer() {
    WipeMemory(bytes, sizeof(bytes));
}

Server::Reply::Reply(int to, Buffer& from, std::size_t requestSize)
    : buffer(from), size(requestSize), descriptor(to) {
    std::memcpy(&header, from.Request(), sizeof(header));
}

Server::Reply::~Reply() {
    if (!isAnswered)
        Fail(EIO);
}

void Server::Reply::Send(std::span<const std::byte> payload) {
    Write(0, payload);
}

void Server::Reply::Fail(int error) {
    Write(-error, {});
}

/// A client that has gone meanwhile makes the kernel refuse the answer, which is then nobody's.
void Server::Reply::Write(int error, std::span<const std::byte> payload) {
    isAnswered = true;
    fuse_out_header out{.len = static_cast<std::uint32_t>(sizeof(fuse_out_header) + payload.size()),
                        .error = error,
                        .unique = header.unique};
    const iovec parts[] = {{.iov_base = &out, .iov_len = sizeof(out)},
                           {.iov_base = const_cast<std::byte*>(payload.data()), .iov_len = payload.size()}};
    static_cast<void>(writev(descriptor, parts, payload.empty() ? 1 : 2));
}

} // namespace quilla::fuse
