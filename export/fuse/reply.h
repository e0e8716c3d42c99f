#pragma once

#include "export/fuse/server.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <span>
#include <sys/uio.h>

namespace quilla::fuse {

/// A thread's memory: a request with its payload, which is also what a read answers with. It is wiped in the
/// end, since it held plain text.
struct Server::Buffer {
    static constexpr std::size_t kPage = 4096;
    /// Bytes before the payload of a write. The payload starts a page.
    static constexpr std::size_t kWriteHead = sizeof(fuse_in_header) + sizeof(fuse_write_in);
    static constexpr std::size_t kRequestSize = kWriteHead + kMaxTransfer;

    Buffer();
    ~Buffer();
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;

    [[nodiscard]] std::byte* Request() { return bytes + kPage - kWriteHead; }
    [[nodiscard]] std::span<std::byte> Payload(std::size_t size) { return {bytes + kPage, size}; }

    alignas(kPage) std::byte bytes[kPage + kMaxTransfer];
};

/// One request and the way to its answer, which is sent once; what has not been answered fails with EIO.
struct Server::Reply {
    Reply(int to, Buffer& from, std::size_t size);
    ~Reply();
    Reply(const Reply&) = delete;
    Reply& operator=(const Reply&) = delete;

    [[nodiscard]] std::uint64_t Node() const { return header.nodeid; }

    /// The operation's own record, read as far as the request goes.
    template <typename Record>
    [[nodiscard]] Record Argument() const {
        Record record{};
        std::memcpy(&record, buffer.Request() + sizeof(header),
                    std::min(sizeof(record), size - sizeof(header)));
        return record;
    }

    void Send(std::span<const std::byte> payload);
    template <typename Record>
    void SendRecord(const Record& record) {
        Send(std::as_bytes(std::span(&record, 1)));
    }
    void Succeed() { Send({}); }
    void Fail(int error);

    fuse_in_header header{};
    Buffer& buffer;
    const std::size_t size; ///< of the request, header included
    const int descriptor;
    bool isAnswered = false;

  private:
    void Write(int error, std::span<const std::byte> payload);
};

} // namespace quilla::fuse
