#pragma once

#include "export/nbd/wire.h"
#include "export/reply_writer.h"
#include "export/stream_reader.h"
#include "platform/byte_stream.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace quilla::nbd {

/// The one export there is.
struct Export {
    std::string_view name;
    std::uint64_t size;
    bool isReadOnly = false;
};

/// The first phase of a connection: greeting, then options until the client enters the export or leaves. What
/// a client may say is bounded: so many options, so many bytes in one, so much time for all.
class Handshake {
  public:
    static constexpr unsigned kMaxOptions = 32;
    static constexpr std::size_t kMaxNameBytes = 4096;
    /// A name with its length, and as many information requests as there could ever be kinds of.
    static constexpr std::size_t kMaxOptionBytes = kMaxNameBytes + 4 + 2 + 2 * 64;
    /// Options up to this size that nobody wants are skipped; a longer one ends the connection.
    static constexpr std::size_t kMaxSkippedBytes = 65536;

    Handshake(ByteStream& stream, StreamReader& reader, ReplyWriter& replies, const Export& theExport)
        : stream_(stream), reader_(reader), replies_(replies), export_(theExport) {}

    /// Runs the phase; true if the client is to be attached. The reply that tells it so is then gathered and
    /// leaves with the next send.
    [[nodiscard]] bool Run(std::uint32_t limitMilliseconds);

    /// Why the client was not attached, for people; null when it left by itself.
    [[nodiscard]] const char* Refusal() const { return refusal_; }

  private:
    enum class Outcome : std::uint8_t { Continue, Attach, Close };

    [[nodiscard]] bool Greet();
    [[nodiscard]] bool Require(std::size_t count);
    [[nodiscard]] bool Skip(std::size_t count);
    [[nodiscard]] Outcome Refuse(const char* why);
    [[nodiscard]] Outcome ServeOption();
    [[nodiscard]] Outcome RefuseUnread(Option option, std::size_t length);
    [[nodiscard]] Outcome ServeExportName(std::span<const std::byte> name);
    [[nodiscard]] Outcome ServeInfo(Option option, std::span<const std::byte> data);
    [[nodiscard]] Outcome Answer(Option option, OptionResult result, Outcome next = Outcome::Continue);
    template <typename Info>
    [[nodiscard]] bool SendInfo(Option option, const Info& info);
    [[nodiscard]] bool IsExport(std::span<const std::byte> name) const;

    ByteStream& stream_;
    StreamReader& reader_;
    ReplyWriter& replies_;
    const Export export_;
    const char* refusal_ = nullptr;
    std::uint64_t deadline_ = 0;
    bool fixedNewstyle_ = false;
    bool noZeroes_ = false;
};

} // namespace quilla::nbd
