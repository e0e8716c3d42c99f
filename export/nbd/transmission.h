#pragma once

#include "export/byte_device.h"
#include "export/nbd/wire.h"
#include "export/reply_writer.h"
#include "export/stream_reader.h"
#include "export/stream_server.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace quilla::nbd {

/// The second phase of a connection: requests and replies until the client says good-bye, breaks off or
/// breaks the rules, or the server stops. Requests are served in the order of their arrival; their replies
/// are gathered and leave before the next receive.
class Transmission {
  public:
    Transmission(StreamReader& reader, ReplyWriter& replies, ByteDevice& device,
                 const std::atomic<ServerPhase>& phase, bool isReadOnly = false)
        : reader_(reader), replies_(replies), device_(device), phase_(phase), isReadOnly_(isReadOnly) {}

    /// Runs the phase; true if the client said good-bye.
    bool Run();

  private:
    /// What follows after a request.
    enum class Outcome : std::uint8_t { Continue, Goodbye, Close };

    struct CommandEntry;
    static const CommandEntry kCommands[];

    static const CommandEntry* FindCommand(std::uint16_t command);
    [[nodiscard]] Error Validate(const Request& request, const CommandEntry* entry) const;
    [[nodiscard]] bool Require(std::size_t count);
    [[nodiscard]] Outcome ServeRequest();

    [[nodiscard]] Outcome ServeRead(const Request& request, Error error);
    [[nodiscard]] Outcome ServeWrite(const Request& request, Error error);
    [[nodiscard]] Outcome ServeWriteZeroes(const Request& request, Error error);
    [[nodiscard]] Outcome ServeFlush(const Request& request, Error error);
    [[nodiscard]] Outcome ServeDisconnect(const Request& request, Error error);

    [[nodiscard]] bool ReadPieces(std::uint64_t offset, std::size_t length);
    [[nodiscard]] Error WriteZeroPieces(std::uint64_t offset, std::uint64_t length);
    [[nodiscard]] Error FlushIfForced(const Request& request, Error error);
    [[nodiscard]] Outcome Reply(const Request& request, Error error);

    StreamReader& reader_;
    ReplyWriter& replies_;
    ByteDevice& device_;
    const std::atomic<ServerPhase>& phase_;
    const bool isReadOnly_;
};

} // namespace quilla::nbd
