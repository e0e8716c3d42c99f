#pragma once

#include <array>
#include <cstdint>
#include <span>

/// Numbers of the SCSI standards (SAM-5, SPC-4, SBC-3) that a disk needs.
namespace quilla::iscsi {

using CommandBlock = std::span<const std::uint8_t, 16>;

enum class Status : std::uint8_t { Good = 0x00, CheckCondition = 0x02, TaskSetFull = 0x28 };

/// Why a command failed: key, additional code and its qualifier. All zero: it did not.
struct Sense {
    std::uint8_t key = 0;
    std::uint16_t code = 0;

    [[nodiscard]] explicit operator bool() const { return key != 0; }
};

inline constexpr Sense kNoSense{};
inline constexpr Sense kWriteError{.key = 0x3, .code = 0x0C00};
inline constexpr Sense kReadError{.key = 0x3, .code = 0x1100};
inline constexpr Sense kParameterLengthError{.key = 0x5, .code = 0x1A00};
inline constexpr Sense kInvalidOpcode{.key = 0x5, .code = 0x2000};
inline constexpr Sense kOutOfRange{.key = 0x5, .code = 0x2100};
inline constexpr Sense kInvalidField{.key = 0x5, .code = 0x2400};
inline constexpr Sense kNoSuchUnit{.key = 0x5, .code = 0x2500};
inline constexpr Sense kInvalidParameter{.key = 0x5, .code = 0x2600};
inline constexpr Sense kNothingSaved{.key = 0x5, .code = 0x3900};
inline constexpr Sense kUnitWasReset{.key = 0x6, .code = 0x2903};
inline constexpr Sense kWriteProtected{.key = 0x7, .code = 0x2700};
inline constexpr Sense kUnexpectedData{.key = 0xB, .code = 0x0C0C};
inline constexpr Sense kWrongAmountOfData{.key = 0xB, .code = 0x0C0D};
inline constexpr Sense kDataDigestError{.key = 0xB, .code = 0x4705};
inline constexpr Sense kShuttingDown{.key = 0xB, .code = 0x0000};
inline constexpr Sense kMiscompare{.key = 0xE, .code = 0x1D00};

/// Sense data in fixed format (SPC-4, 4.5.3).
using SenseData = std::array<std::uint8_t, 18>;
[[nodiscard]] constexpr SenseData FixedSense(Sense sense) {
    SenseData data{};
    data[0] = 0x70;
    data[2] = sense.key;
    data[7] = sizeof(data) - 8;
    data[12] = static_cast<std::uint8_t>(sense.code >> 8);
    data[13] = static_cast<std::uint8_t>(sense.code);
    return data;
}

} // namespace quilla::iscsi
