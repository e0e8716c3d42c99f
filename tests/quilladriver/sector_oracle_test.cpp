// The format of a volume's sectors against libgcrypt. Every kernel this processor can run is tried.

#include "quilladriver/sector_cipher.h"
#include "quilladriver/sector_kernel.h"
#include "tests/quilladriver/test_sectors.h"
#include "tests/support/sector_oracle.h"

#include <algorithm>
#include <cctype>
#include <gtest/gtest.h>
#include <numeric>
#include <string>

namespace quilla {
namespace {

using test::RandomSectors;
using test::SectorBytes;

class SectorOracleTest : public testing::TestWithParam<const SectorKernel*> {
  protected:
    void SetUp() override {
        if (!GetParam()->isSupported())
            GTEST_SKIP() << "this processor cannot run the kernel " << GetParam()->name;
    }

    static SectorBytes Expect(const DataKey& key, std::uint64_t first, SectorBytes plain) {
        test::OracleEncryptSectors(GetParam()->cipher, key, first, plain);
        return plain;
    }
};

TEST_P(SectorOracleTest, RunsOfAnyLengthAtAnyAddress) {
    RandomSectors random(1);
    std::vector<std::size_t> counts(70);
    std::iota(counts.begin(), counts.end(), std::size_t{1});
    counts.insert(counts.end(), {127, 128, 200, 513});
    for (const std::size_t count : counts) {
        const DataKey key = random.MakeKey();
        const std::uint64_t first = test::kFirstSectors[count % std::size(test::kFirstSectors)];
        SCOPED_TRACE(testing::Message() << count << " sectors from " << first);
        SectorCipher cipher;
        ASSERT_TRUE(cipher.SetUp(*GetParam(), key));
        const SectorBytes plain = random.MakeSectors(count);
        const SectorBytes expected = Expect(key, first, plain);
        SectorBytes room(plain.size() + 1);
        const std::span sectors = std::span(room).subspan(count % 2, plain.size());
        std::ranges::copy(plain, sectors.begin());
        cipher.Encrypt(first, sectors);
        ASSERT_TRUE(std::ranges::equal(sectors, expected));
        cipher.Decrypt(first, sectors);
        ASSERT_TRUE(std::ranges::equal(sectors, plain));
    }
}

std::string KernelTestName(const testing::TestParamInfo<const SectorKernel*>& tested) {
    std::string name = tested.param->cipher == CipherId::Twofish ? "Twofish_" : "Cast128_";
    for (const char* c = tested.param->name; *c != 0; ++c)
        name += std::isalnum(static_cast<unsigned char>(*c)) != 0 ? *c : '_';
    return name;
}

INSTANTIATE_TEST_SUITE_P(Kernels, SectorOracleTest, testing::ValuesIn(AllSectorKernels()), KernelTestName);

} // namespace
} // namespace quilla
