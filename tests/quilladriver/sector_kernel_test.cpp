// The kernels on every platform: each against the portable one, the portable one against test vectors made by
// libgcrypt (docs/volume-data-format.md), and what SectorCipher promises around them.

#include "platform/processor.h"
#include "quilladriver/sector_cipher.h"
#include "quilladriver/sector_kernel.h"
#include "tests/quilladriver/test_sectors.h"
#include "tests/support/hex.h"

#include <algorithm>
#include <cstdio>
#include <gtest/gtest.h>

namespace quilla {
namespace {

using test::RandomSectors;
using test::SectorBytes;

const SectorKernel& PortableKernel(CipherId cipher) {
    const SectorKernel* portable = nullptr;
    for (const SectorKernel* kernel : AllSectorKernels())
        if (kernel->cipher == cipher)
            portable = kernel; // it stands last
    return *portable;
}

/// A sector of the bytes 0, 1, ... 255 twice, under the key of bytes 0 to 31, as libgcrypt 1.10 enciphers it.
struct Vector {
    CipherId cipher;
    std::uint64_t sector;
    const char* firstBytes;
    const char* lastBytes;
};

constexpr Vector kVectors[] = {
    {CipherId::Twofish, 0x1'2345'6789, "66E6D1C370B4721A87A053AF476FDEBD55AD348BF42F3DD04FAC4C7F2781DDAE",
     "E5FBDF861392ADC5E0CA53B6906D4606C5F6D043A1421E8CBB392918DC73CC4A"},
    {CipherId::Cast128, 0x1'2345'6789, "D8C2BEE0A5715C3B7B65309C3B0ADE5D4FBCC6D11D7C3613EE2C9DD4E5EB6CD4",
     "09341268B5FA35BE71FAB758150E10DB7D212052604C9006824B1CEC769A5B96"},
};

TEST(SectorKernelTest, GivesTheVectorsOfAnotherLibrary) {
    DataKey key;
    for (std::size_t i = 0; i < key.size(); ++i)
        key[i] = static_cast<std::byte>(i);
    SectorBytes plain(kSectorSize);
    for (std::size_t i = 0; i < plain.size(); ++i)
        plain[i] = static_cast<std::byte>(i);
    for (const Vector& vector : kVectors)
        for (const SectorKernel* kernel : AllSectorKernels()) {
            if (kernel->cipher != vector.cipher || !kernel->isSupported())
                continue;
            SectorCipher cipher;
            ASSERT_TRUE(cipher.SetUp(*kernel, key));
            SectorBytes sector = plain;
            cipher.Encrypt(vector.sector, sector);
            EXPECT_EQ(test::ToHex(std::span(sector).first(32)), vector.firstBytes) << kernel->name;
            EXPECT_EQ(test::ToHex(std::span(sector).last(32)), vector.lastBytes) << kernel->name;
            cipher.Decrypt(vector.sector, sector);
            EXPECT_EQ(sector, plain) << kernel->name;
        }
}

TEST(SectorKernelTest, EveryKernelGivesTheBytesOfThePortableOne) {
    RandomSectors random(3);
    for (const SectorKernel* kernel : AllSectorKernels()) {
        if (!kernel->isSupported()) {
            std::printf("NOT TESTED: this processor cannot run the kernel %s\n", kernel->name);
            continue;
        }
        const DataKey key = random.MakeKey();
        SectorCipher tried;
        SectorCipher portable;
        ASSERT_TRUE(tried.SetUp(*kernel, key));
        ASSERT_TRUE(portable.SetUp(PortableKernel(kernel->cipher), key));
        for (std::size_t count = 1; count <= 70; ++count) {
            const std::uint64_t first = test::kFirstSectors[count % std::size(test::kFirstSectors)];
            const SectorBytes plain = random.MakeSectors(count);
            SectorBytes expected = plain;
            SectorBytes sectors = plain;
            portable.Encrypt(first, expected);
            tried.Encrypt(first, sectors);
            ASSERT_EQ(sectors, expected) << kernel->name << ", " << count << " sectors";
            tried.Decrypt(first, sectors);
            ASSERT_EQ(sectors, plain) << kernel->name << ", " << count << " sectors";
        }
    }
}

#if defined(__x86_64__)
/// A thread that waits keeps its registers, and wherever it is interrupted they are laid down in memory.
TEST(SectorCipherTest, LeavesNothingInTheRegistersThatFewOthersUse) {
    constexpr std::size_t kHeaderEnd = 576; // of the area that XSAVE writes
    constexpr std::uint32_t kWideRegisters = 0xC0;
    for (const SectorKernel* const kernel : AllSectorKernels()) {
        if (kernel->isSupported != HasAvx512 || !HasAvx512())
            continue;
        SectorCipher cipher;
        RandomSectors random(5);
        SectorBytes sectors = random.MakeSectors(70);
        ASSERT_TRUE(cipher.SetUp(*kernel, random.MakeKey()));
        for (const auto crypt : {&SectorCipher::Encrypt, &SectorCipher::Decrypt}) {
            alignas(64) std::byte state[16384]{};
            (cipher.*crypt)(0, sectors);
            asm volatile("xsave64 %0" : "+m"(state) : "a"(kWideRegisters), "d"(0));
            EXPECT_EQ(std::ranges::count(std::span(state).subspan(kHeaderEnd), std::byte{0}),
                      static_cast<std::ptrdiff_t>(sizeof(state) - kHeaderEnd))
                << kernel->name;
        }
    }
}
#endif

TEST(SectorCipherTest, PlainAndUnknownCiphers) {
    SectorCipher cipher;
    const DataKey key{};
    for (const std::uint32_t number : {1U, 5U, 11U}) {
        EXPECT_EQ(ChooseSectorKernel(CipherId{number}), nullptr);
        EXPECT_FALSE(cipher.SetUp(CipherId{number}, key));
    }
    ASSERT_TRUE(cipher.SetUp(CipherId::None, key));
    EXPECT_TRUE(cipher.IsPlain());
    const SectorBytes plain = RandomSectors(4).MakeSectors(3);
    SectorBytes sectors = plain;
    cipher.Encrypt(7, sectors);
    EXPECT_EQ(sectors, plain);
    cipher.Decrypt(7, sectors);
    EXPECT_EQ(sectors, plain);
}

} // namespace
} // namespace quilla
