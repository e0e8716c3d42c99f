// The kernels on every platform: each against the portable one, the portable one against test vectors made by
// libgcrypt (docs/volume-data-format.md), and what SectorCipher promises around them.

#include "quilladriver/sector_cipher.h"
#include "quilladriver/sector_kernel.h"
#include "tests/quilladriver/test_sectors.h"
#include "volume/crc32.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace quilla {
namespace {

using test::RandomBytes;
using test::SectorBytes;

const SectorKernel& PortableKernel(CipherId cipher) {
    const SectorKernel* portable = nullptr;
    for (const SectorKernel* kernel : AllSectorKernels())
        if (kernel->cipher == cipher)
            portable = kernel; // it stands last
    return *portable;
}

TEST(SectorKernelTest, EveryKernelGivesTheBytesOfThePortableOne) {
    RandomBytes random(3);
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

TEST(SectorKernelTest, TheChosenKernelIsTheFirstThatRuns) {
    for (const CipherId cipher : {CipherId::Cast128, CipherId::Twofish}) {
        const SectorKernel* const chosen = ChooseSectorKernel(cipher);
        ASSERT_NE(chosen, nullptr);
        const auto all = AllSectorKernels();
        const auto first = std::ranges::find_if(all, [&](const SectorKernel* kernel) {
            return kernel->cipher == cipher && kernel->isSupported();
        });
        EXPECT_EQ(chosen, *first);
        EXPECT_TRUE(PortableKernel(cipher).isSupported());
    }
    EXPECT_EQ(ChooseSectorKernel(CipherId::None), nullptr);
    EXPECT_EQ(ChooseSectorKernel(CipherId{5}), nullptr);
}

TEST(SectorCipherTest, PlainAndUnknownCiphers) {
    SectorCipher cipher;
    const DataKey key{};
    EXPECT_FALSE(cipher.SetUp(CipherId{1}, key));
    EXPECT_FALSE(cipher.SetUp(CipherId{11}, key));
    ASSERT_TRUE(cipher.SetUp(CipherId::None, key));
    EXPECT_TRUE(cipher.IsPlain());
    const SectorBytes plain = RandomBytes(4).MakeSectors(3);
    SectorBytes sectors = plain;
    cipher.Encrypt(7, sectors);
    EXPECT_EQ(sectors, plain);
    cipher.Decrypt(7, sectors);
    EXPECT_EQ(sectors, plain);
}

TEST(SectorCipherTest, MovesItsSchedule) {
    RandomBytes random(5);
    const DataKey key = random.MakeKey();
    SectorCipher first;
    ASSERT_TRUE(first.SetUp(CipherId::Twofish, key));
    const SectorBytes plain = random.MakeSectors(2);
    SectorBytes sectors = plain;
    first.Encrypt(9, sectors);
    SectorCipher second;
    ASSERT_TRUE(second.SetUp(CipherId::Cast128, key));
    second = std::move(first);
    second.Decrypt(9, sectors);
    EXPECT_EQ(sectors, plain);
}

} // namespace
} // namespace quilla
