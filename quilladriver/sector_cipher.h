#pragma once

#include "volume/cipher_id.h"
#include "volume/volume_record.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace quilla {

struct SectorKernel;

/// Enciphers and deciphers runs of 512-byte sectors in place, each sector on its own:
///  - CipherId::None: the data stays as it is.
///  - CipherId::Twofish: XTS (IEEE 1619) with the 32-byte data key; the tweak key is Twofish under the data
///    key of the ASCII blocks "QuillaTweakKey 1" and "QuillaTweakKey 2"; the tweak is the sector number as a
///    128-bit little-endian number.
///  - CipherId::Cast128: CBC with data key bytes 0 to 15; the IV is CAST-128 under bytes 16 to 31 of the
///    sector number as a 64-bit little-endian number.
///
/// The work is done by the best kernel for the processor; all kernels give the same bytes. After SetUp an
/// object is constant and may be used by any number of threads at once.
class SectorCipher {
  public:
    SectorCipher() = default;
    ~SectorCipher() { Clear(); }
    SectorCipher(const SectorCipher&) = delete;
    SectorCipher& operator=(const SectorCipher&) = delete;
    SectorCipher(SectorCipher&& other) noexcept;
    SectorCipher& operator=(SectorCipher&& other) noexcept;

    /// Builds the key schedules, in memory that is locked where the system allows. False for a cipher that
    /// cannot encipher and when there is no memory.
    [[nodiscard]] bool SetUp(CipherId cipher, const DataKey& key);

    /// The same with a kernel of the caller's choice, which the processor must be able to run.
    [[nodiscard]] bool SetUp(const SectorKernel& kernel, const DataKey& key);

    /// True after SetUp with CipherId::None: data passes unchanged.
    [[nodiscard]] bool IsPlain() const { return kernel_ == nullptr; }

    /// Enciphers whole sectors, of which the first has the number given.
    void Encrypt(std::uint64_t firstSector, std::span<std::byte> sectors) const;

    /// Deciphers whole sectors, of which the first has the number given.
    void Decrypt(std::uint64_t firstSector, std::span<std::byte> sectors) const;

    /// Wipes and releases the schedules.
    void Clear();

  private:
    const SectorKernel* kernel_ = nullptr;
    void* schedule_ = nullptr;
};

} // namespace quilla
