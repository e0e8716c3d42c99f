// The format of a volume's sectors against libgcrypt: XTS and CBC as that library does them, with the keys
// and IVs derived here once more from the format's definition. Every kernel this processor can run is tried.

#include "quilladriver/sector_cipher.h"
#include "quilladriver/sector_kernel.h"
#include "tests/quilladriver/test_sectors.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstring>
#include <gcrypt.h>
#include <gtest/gtest.h>
#include <numeric>
#include <string>

namespace quilla {
namespace {

using test::RandomSectors;
using test::SectorBytes;

/// One libgcrypt cipher with its key set.
class Oracle {
  public:
    Oracle(int algorithm, int mode, const void* key, std::size_t size) {
        EXPECT_EQ(0U, gcry_cipher_open(&handle_, algorithm, mode, 0));
        EXPECT_EQ(0U, gcry_cipher_setkey(handle_, key, size));
    }
    ~Oracle() { gcry_cipher_close(handle_); }
    Oracle(const Oracle&) = delete;
    Oracle& operator=(const Oracle&) = delete;

    void Encrypt(void* data, std::size_t size) const {
        EXPECT_EQ(0U, gcry_cipher_encrypt(handle_, data, size, nullptr, 0));
    }
    void SetIv(const void* iv, std::size_t size) const {
        EXPECT_EQ(0U, gcry_cipher_setiv(handle_, iv, size));
    }

  private:
    gcry_cipher_hd_t handle_ = nullptr;
};

void EncryptTwofish(const DataKey& key, std::uint64_t first, SectorBytes& sectors) {
    std::array<char, 64> keys{};
    std::memcpy(keys.data(), key.data(), 32);
    std::memcpy(keys.data() + 32, "QuillaTweakKey 1QuillaTweakKey 2", 32);
    Oracle(GCRY_CIPHER_TWOFISH, GCRY_CIPHER_MODE_ECB, key.data(), 32).Encrypt(keys.data() + 32, 32);
    const Oracle xts(GCRY_CIPHER_TWOFISH, GCRY_CIPHER_MODE_XTS, keys.data(), keys.size());
    for (std::size_t at = 0; at < sectors.size(); at += kSectorSize) {
        std::uint64_t tweak[2] = {first++, 0};
        xts.SetIv(tweak, sizeof(tweak));
        xts.Encrypt(sectors.data() + at, kSectorSize);
    }
}

void EncryptCast128(const DataKey& key, std::uint64_t first, SectorBytes& sectors) {
    const Oracle ivCipher(GCRY_CIPHER_CAST5, GCRY_CIPHER_MODE_ECB, key.data() + 16, 16);
    const Oracle cbc(GCRY_CIPHER_CAST5, GCRY_CIPHER_MODE_CBC, key.data(), 16);
    for (std::size_t at = 0; at < sectors.size(); at += kSectorSize) {
        std::uint64_t iv = first++;
        ivCipher.Encrypt(&iv, sizeof(iv));
        cbc.SetIv(&iv, sizeof(iv));
        cbc.Encrypt(sectors.data() + at, kSectorSize);
    }
}

class SectorOracleTest : public testing::TestWithParam<const SectorKernel*> {
  protected:
    void SetUp() override {
        gcry_check_version(nullptr);
        if (!GetParam()->isSupported())
            GTEST_SKIP() << "this processor cannot run the kernel " << GetParam()->name;
    }

    static SectorBytes Expect(const DataKey& key, std::uint64_t first, SectorBytes plain) {
        const bool isTwofish = GetParam()->cipher == CipherId::Twofish;
        (isTwofish ? EncryptTwofish : EncryptCast128)(key, first, plain);
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
