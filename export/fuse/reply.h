#pragma once

#include "export/fuse/server.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <span>

namespace quilla::fuse {

/// Memory of a request with its payload, which is also what a read answers with. It is wiped in the end,
/// since it held plain text.
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

/// One request and the way to its answer, which is sent once.
class Server::Reply {
  public:
    virtual ~Reply() = default;
    Reply(const Reply&) = delete;
    Reply& operator=(const Reply&) = delete;

    [[nodiscard]] std::uint64_t Node() const { return header.nodeid; }

    /// The operation's own record, read as far as the request goes.
    template <typename Record>
    [[nodiscard]] Record Argument() const {
        Record result{};
        std::memcpy(&result, record.data(), std::min(sizeof(result), record.size()));
        return result;
    }

    void Send(std::span<const std::byte> answer) { Answer(0, answer); }
    template <typename Record>
    void SendRecord(const Record& answer) {
        Send(std::as_bytes(std::span(&answer, 1)));
    }
    void Succeed() { Send({}); }
    void Fail(int error) { Answer(-error, {}); }
    void StaySilent() { isAnswered_ = true; }

    /// What nobody has answered fails with EIO.
    void Finish() {
        if (!isAnswered_)
            Fail(EIO);
    }

    const fuse_in_header header;
    const std::span<const std::byte> record; ///< the operation's own, or a name
    const std::span<std::byte> payload;      ///< what came to be written; room for what is read
    const std::size_t payloadSize;           ///< bytes of it that came

  protected:
    Reply(const fuse_in_header& head, std::span<const std::byte> own, std::span<std::byte> room,
          std::size_t size)
        : header(head), record(own), payload(room), payloadSize(size) {}
    virtual void Write(const fuse_out_header& head, std::span<const std::byte> answer) = 0;

  private:
    void Answer(int error, std::span<const std::byte> answer) {
        isAnswered_ = true;
        Write({.len = static_cast<std::uint32_t>(sizeof(fuse_out_header) + answer.size()),
               .error = error,
               .unique = header.unique},
              answer);
    }

    bool isAnswered_ = false;
};

} // namespace quilla::fuse
