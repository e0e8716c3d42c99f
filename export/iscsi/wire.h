#pragma once

#include "platform/byte_order.h"

#include <array>
#include <cstddef>
#include <cstdint>

/// iSCSI on the wire: numbers and structures of RFC 7143, section 11. All numbers are big-endian.
namespace quilla::iscsi {

/// A length of 24 bits.
class Big24 {
  public:
    Big24() = default;
    Big24(std::size_t value)
        : bytes_{static_cast<std::uint8_t>(value >> 16), static_cast<std::uint8_t>(value >> 8),
                 static_cast<std::uint8_t>(value)} {}
    operator std::uint32_t() const {
        return static_cast<std::uint32_t>(bytes_[0] << 16 | bytes_[1] << 8 | bytes_[2]);
    }

  private:
    std::uint8_t bytes_[3] = {};
};

/// What an initiator sends; in the first byte, below kImmediate.
enum class RequestCode : std::uint8_t {
    NopOut = 0x00,
    ScsiCommand = 0x01,
    TaskManagement = 0x02,
    Login = 0x03,
    Text = 0x04,
    DataOut = 0x05,
    Logout = 0x06,
    Snack = 0x10,
};

enum class ResponseCode : std::uint8_t {
    NopIn = 0x20,
    ScsiResponse = 0x21,
    TaskManagement = 0x22,
    Login = 0x23,
    Text = 0x24,
    DataIn = 0x25,
    Logout = 0x26,
    ReadyToTransfer = 0x31,
    AsyncMessage = 0x32,
    Reject = 0x3F,
};

inline constexpr std::uint8_t kCodeMask = 0x3F;
inline constexpr std::uint8_t kImmediate = 0x40;
inline constexpr std::uint8_t kFinal = 0x80;

/// Flags of a SCSI command.
inline constexpr std::uint8_t kReads = 0x40;
inline constexpr std::uint8_t kWrites = 0x20;
/// Flags of a SCSI response and of data-in with status.
inline constexpr std::uint8_t kOverflow = 0x04;
inline constexpr std::uint8_t kUnderflow = 0x02;
inline constexpr std::uint8_t kHasStatus = 0x01;
/// Flags of login and text.
inline constexpr std::uint8_t kTransit = 0x80;
inline constexpr std::uint8_t kContinue = 0x40;

/// "No task", "no transfer".
inline constexpr std::uint32_t kNoTag = 0xFFFFFFFF;

/// A basic header segment from an initiator.
struct Request {
    std::uint8_t code;
    std::uint8_t flags;
    std::array<std::uint8_t, 2> detail; ///< login: highest and lowest version
    std::uint8_t extraWords;            ///< of additional header segments
    Big24 dataLength;
    std::array<std::uint8_t, 8> lun; ///< login: session identifier (6), session handle (2)
    Big32 tag;
    Big32 reference; ///< target's transfer tag; expected length; tag of another task; login: connection (16)
    Big32 commandNumber;
    Big32 statusExpected;
    std::array<std::uint8_t, 16> tail; ///< the command block; data-out: number at 4, offset at 8

    [[nodiscard]] RequestCode Code() const { return static_cast<RequestCode>(code & kCodeMask); }
    [[nodiscard]] bool IsImmediate() const { return (code & kImmediate) != 0; }
    [[nodiscard]] bool Has(std::uint8_t flag) const { return (flags & flag) != 0; }
    [[nodiscard]] std::uint32_t TailNumber(std::size_t at) const {
        return LoadBig<std::uint32_t>(tail.data() + at);
    }
};
static_assert(sizeof(Request) == 48);

/// A basic header segment to an initiator.
struct Response {
    std::uint8_t code;
    std::uint8_t flags;
    std::uint8_t detail; ///< response or reason
    std::uint8_t status;
    std::uint8_t extraWords;
    Big24 dataLength;
    std::array<std::uint8_t, 8> lun;
    Big32 tag;
    Big32 transferTag;
    Big32 statusNumber;
    Big32 commandExpected;
    Big32 commandLast;
    Big32 sequence; ///< number of data or transfer request; login: status (16); async: event (8)
    Big32 offset;
    Big32 length; ///< residual count; length wanted
};
static_assert(sizeof(Response) == 48);

enum class RejectReason : std::uint8_t {
    DataDigest = 0x02,
    SnackRefused = 0x03,
    ProtocolError = 0x04,
    NotSupported = 0x05,
    TooManyImmediate = 0x06,
    InvalidField = 0x09,
};

/// Status of a login: class in the upper byte, detail in the lower.
enum class LoginStatus : std::uint16_t {
    Success = 0x0000,
    InitiatorError = 0x0200,
    AuthenticationFailure = 0x0201,
    TargetNotFound = 0x0203,
    UnsupportedVersion = 0x0205,
    TooManyConnections = 0x0206,
    MissingParameter = 0x0207,
    SessionTypeNotSupported = 0x0209,
    NoSuchSession = 0x020A,
    InvalidRequest = 0x020B,
    OutOfResources = 0x0302,
};

/// The most data that one unit from an initiator may carry, in full-feature phase and before.
inline constexpr std::uint32_t kMaxSegment = 256U << 10;
inline constexpr std::uint32_t kMaxLoginSegment = 8192;

} // namespace quilla::iscsi
