#pragma once

#include "platform/byte_order.h"

#include <cstddef>
#include <cstdint>

/// The Network Block Device protocol on the wire: numbers and structures of its published description
/// (github.com/NetworkBlockDevice/nbd, doc/proto.md). All numbers are big-endian and unaligned.
namespace quilla::nbd {

inline constexpr std::uint64_t kGreetingMagic = 0x4E42444D41474943; // "NBDMAGIC"
inline constexpr std::uint64_t kOptionMagic = 0x49484156454F5054;   // "IHAVEOPT"
inline constexpr std::uint64_t kOptionReplyMagic = 0x0003E889045565A9;
inline constexpr std::uint32_t kRequestMagic = 0x25609513;
inline constexpr std::uint32_t kSimpleReplyMagic = 0x67446698;

/// Handshake flags, of the server and of the client.
inline constexpr std::uint16_t kFixedNewstyle = 1U << 0;
inline constexpr std::uint16_t kNoZeroes = 1U << 1;

enum class Option : std::uint32_t {
    ExportName = 1,
    Abort = 2,
    List = 3,
    Info = 6,
    Go = 7,
};

enum class OptionResult : std::uint32_t {
    Ack = 1,
    Info = 3,
    ErrorUnsupported = 0x80000001,
    ErrorPolicy = 0x80000002,
    ErrorInvalid = 0x80000003,
    ErrorUnknown = 0x80000006,
    ErrorTooBig = 0x80000009,
};

enum class InfoType : std::uint16_t { Export = 0, BlockSize = 3 };

/// Transmission flags: what an export can do.
inline constexpr std::uint16_t kHasFlags = 1U << 0;
inline constexpr std::uint16_t kReadOnly = 1U << 1;
inline constexpr std::uint16_t kSendFlush = 1U << 2;
inline constexpr std::uint16_t kSendFua = 1U << 3;
inline constexpr std::uint16_t kSendWriteZeroes = 1U << 6;
inline constexpr std::uint16_t kCanMultiConn = 1U << 8;

enum class Command : std::uint16_t { Read = 0, Write = 1, Disconnect = 2, Flush = 3, WriteZeroes = 6 };

/// Command flags.
inline constexpr std::uint16_t kForceUnitAccess = 1U << 0;
inline constexpr std::uint16_t kNoHole = 1U << 1;

/// The longest payload of a read or write, as told to clients that ask.
inline constexpr std::uint32_t kMaximumPayload = 32U << 20;

/// Error numbers of replies.
enum class Error : std::uint32_t {
    None = 0,
    NotPermitted = 1,
    Io = 5,
    Invalid = 22,
    NoSpace = 28,
    Shutdown = 108
};

struct Greeting {
    Big64 magic;
    Big64 optionMagic;
    Big16 flags;
};
static_assert(sizeof(Greeting) == 18);

struct OptionHeader {
    Big64 magic;
    Big32 option;
    Big32 length;
};
static_assert(sizeof(OptionHeader) == 16);

struct OptionReply {
    Big64 magic;
    Big32 option;
    Big32 result;
    Big32 length;
};
static_assert(sizeof(OptionReply) == 20);

/// The whole answer to Option::ExportName.
struct ExportReply {
    Big64 size;
    Big16 flags;
};
static_assert(sizeof(ExportReply) == 10);

/// Zeros behind an ExportReply unless the client said kNoZeroes.
inline constexpr std::size_t kExportReplyZeroes = 124;

struct ExportInfo {
    Big16 type;
    Big64 size;
    Big16 flags;
};
static_assert(sizeof(ExportInfo) == 12);

struct BlockSizeInfo {
    Big16 type;
    Big32 minimum;
    Big32 preferred;
    Big32 maximum;
};
static_assert(sizeof(BlockSizeInfo) == 14);

struct Request {
    Big32 magic;
    Big16 flags;
    Big16 command;
    Big64 cookie;
    Big64 offset;
    Big32 length;
};
static_assert(sizeof(Request) == 28);

struct SimpleReply {
    Big32 magic;
    Big32 error;
    Big64 cookie;
};
static_assert(sizeof(SimpleReply) == 16);

} // namespace quilla::nbd
