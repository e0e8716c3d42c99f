#pragma once

#include "volume/password_digest.h"
#include "volume/volume_record.h"

#include <cstddef>
#include <cstdint>

namespace quilla {

/// What a sender asks of the instance that owns the volume list.
enum class RequestCode : std::uint32_t {
    CreateVolumeFile = 1,
    QueryVolume = 2,
    DeleteVolumeFiles = 3,
    MountVolume = 4,
    DismountVolume = 5,
    CheckTimeouts = 6,
};

/// One request and its reply, at the start of the shared mapping.
struct RequestBlock {
    quilla::RequestCode RequestCode;
    std::uint32_t reserved1;
    VolumeRecord Record;
    PasswordDigest passwordDigest; ///< CreateVolumeFile only
    std::uint32_t reserved2;
};

static_assert(std::is_trivially_copyable_v<RequestBlock> && std::is_standard_layout_v<RequestBlock>);
static_assert(offsetof(RequestBlock, RequestCode) == 0);
static_assert(offsetof(RequestBlock, reserved1) == 4);
static_assert(offsetof(RequestBlock, Record) == 8);
static_assert(offsetof(RequestBlock, passwordDigest) == 1136);
static_assert(offsetof(RequestBlock, reserved2) == 1156);
static_assert(sizeof(RequestBlock) == 1160);

} // namespace quilla
