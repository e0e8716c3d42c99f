// The reference of the Twofish kernels: block by block, for any processor.

#include "platform/byte_order.h"
#include "platform/disk_codes.h"
#include "platform/wipe.h"
#include "quilladriver/kernels.h"
#include "quilladriver/twofish_keys.h"

namespace quilla {

namespace {

/// A tweak as four 32-bit words, the lowest first, for processors without wider ones.
struct Tweak {
    std::uint32_t words[4];
};

Tweak MakeTweak(const TwofishSchedule& schedule, std::uint64_t sector) {
    std::byte block[kTwofishBlockSize]{};
    StoreLittle(block, sector);
    TwofishEncryptBlock(schedule, block, block);
    Tweak tweak{};
    for (std::size_t i = 0; i < 4; ++i)
        tweak.words[i] = LoadLittle<std::uint32_t>(block + 4 * i);
    return tweak;
}

/// Multiplies by x in the field of IEEE 1619, polynomial x^128 + x^7 + x^2 + x + 1.
void Double(Tweak& tweak) {
    constexpr std::uint32_t kPolynomial = 0x87;
    std::uint32_t carry = (0U - (tweak.words[3] >> 31)) & kPolynomial;
    for (std::uint32_t& word : tweak.words) {
        const std::uint32_t top = word >> 31;
        word = (word << 1) ^ carry;
        carry = top;
    }
}

void Mask(std::byte* block, const Tweak& tweak) {
    for (std::size_t i = 0; i < 4; ++i)
        StoreLittle(block + 4 * i, LoadLittle<std::uint32_t>(block + 4 * i) ^ tweak.words[i]);
}

template <auto Cipher>
void Run(const void* opaque, std::uint64_t sector, std::byte* data, std::size_t count) {
    const auto& keys = *static_cast<const TwofishSchedulePair*>(opaque);
    Tweak tweak{};
    for (const std::byte* const end = data + count * kSectorSize; data != end; ++sector) {
        tweak = MakeTweak(keys.tweak, sector);
        for (const std::byte* const sectorEnd = data + kSectorSize; data != sectorEnd;
             data += kTwofishBlockSize) {
            Mask(data, tweak);
            Cipher(keys.data, data, data);
            Mask(data, tweak);
            Double(tweak);
        }
    }
    Wipe(tweak);
}

} // namespace

const SectorKernel kTwofishPortable = {
    .cipher = CipherId::Twofish,
    .name = "portable",
    .isSupported = [] { return true; },
    .scheduleSize = sizeof(TwofishSchedulePair),
    .setUp = BuildTwofishSchedules,
    .encrypt = Run<TwofishEncryptBlock>,
    .decrypt = Run<TwofishDecryptBlock>,
};

} // namespace quilla
