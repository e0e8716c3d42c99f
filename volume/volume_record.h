#pragma once

#include "platform/text.h"
#include "volume/cipher_id.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace quilla {

inline constexpr std::size_t kDataKeySize = 32;
using DataKey = std::array<std::byte, kDataKeySize>;

/// "SEC", one digit, ":" and the terminating zero.
inline constexpr std::size_t kDeviceNameUnits = 6;

/// Everything known about one volume. Copied byte for byte between processes and handed to the driver, hence
/// the fixed layout; all numbers little-endian. Times are 100-ns units, moments are file times taken from the
/// local time.
struct VolumeRecord {
    PathText Path;      ///< the volume file
    std::uint64_t Size; ///< bytes
    PathText KeyPath;   ///< the key file; empty = none
    CipherId Cipher;
    std::uint32_t reserved1;
    std::uint64_t Timeout;      ///< inactivity after which the volume is dismounted; 0 = never
    std::uint64_t ActivityTime; ///< last read or write, kept by the driver
    std::uint8_t Flags;         ///< bit 0 travels with the time-out in the key file
    std::uint8_t reserved2;
    TextUnit DeviceName[kDeviceNameUnits];
    std::uint16_t reserved3;
    std::uint32_t DeviceHandle; ///< 0 = not mounted
    DataKey Key;                ///< zero at all times except on the way into the driver
    std::uint32_t reserved4;

    [[nodiscard]] bool IsMounted() const { return DeviceHandle != 0; }
};

static_assert(std::is_trivially_copyable_v<VolumeRecord> && std::is_standard_layout_v<VolumeRecord>);
static_assert(offsetof(VolumeRecord, Path) == 0);
static_assert(offsetof(VolumeRecord, Size) == 520);
static_assert(offsetof(VolumeRecord, KeyPath) == 528);
static_assert(offsetof(VolumeRecord, Cipher) == 1048);
static_assert(offsetof(VolumeRecord, reserved1) == 1052);
static_assert(offsetof(VolumeRecord, Timeout) == 1056);
static_assert(offsetof(VolumeRecord, ActivityTime) == 1064);
static_assert(offsetof(VolumeRecord, Flags) == 1072);
static_assert(offsetof(VolumeRecord, reserved2) == 1073);
static_assert(offsetof(VolumeRecord, DeviceName) == 1074);
static_assert(offsetof(VolumeRecord, reserved3) == 1086);
static_assert(offsetof(VolumeRecord, DeviceHandle) == 1088);
static_assert(offsetof(VolumeRecord, Key) == 1092);
static_assert(offsetof(VolumeRecord, reserved4) == 1124);
static_assert(sizeof(VolumeRecord) == 1128);

/// Time-out units (100 ns) in one minute.
inline constexpr std::uint64_t kTimeoutUnitsPerMinute = 600'000'000;

/// What a new volume starts with: 1 MiB, CAST-128, 30 minutes.
inline constexpr std::uint64_t kDefaultVolumeSize = 1'048'576;
inline constexpr std::uint64_t kDefaultTimeout = 30 * kTimeoutUnitsPerMinute;

/// How long before its end a time-out counts as run out (15 seconds): who sweeps does not come to the second.
inline constexpr std::uint64_t TimeoutSlack = 150'000'000;

/// Whether a volume that was last used at `activity` is to be dismounted.
[[nodiscard]] constexpr bool IsTimeoutOver(std::uint64_t timeout, std::uint64_t activity, std::uint64_t now) {
    return timeout != 0 && timeout + activity <= now + TimeoutSlack;
}

} // namespace quilla
