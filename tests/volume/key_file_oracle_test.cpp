// The files of the format's description, which other libraries confirm, open here. That files written here
// open elsewhere is seen in tests/endtoend.

#include "tests/support/key_file_builder.h"
#include "tests/support/oracle.h"
#include "tests/support/scratch_file.h"
#include "volume/key_file.h"
#include "volume/sha1.h"

#include <gtest/gtest.h>
#include <numeric>
#include <set>

namespace quilla {
namespace {

using test::Bytes;
using test::ScratchFile;
using test::ToHex;

constexpr CipherId kCiphers[] = {CipherId::Cast128, CipherId::Twofish};

PasswordDigest KeyOf(std::u16string_view password) {
    PasswordDigest key;
    PasswordKey(key, password);
    return key;
}

Bytes Slice(const Bytes& bytes, std::size_t offset, std::size_t size) {
    const auto slice = std::span(bytes).subspan(offset, size);
    return Bytes(slice.begin(), slice.end());
}

/// Checks a whole file against one built here; the plain master key of its block.
Bytes OpenElsewhere(const Bytes& content, CipherId cipher, std::u16string_view password,
                    std::uint64_t timeout, std::uint32_t options) {
    const auto number = static_cast<std::uint16_t>(cipher);
    const Bytes block = Slice(content, 72, 152);
    EXPECT_EQ(ToHex(content), ToHex(test::BuildKeyFile(number, timeout, options, block)));
    const Bytes masterKey = test::OracleDecipher(number, test::OraclePasswordKey(password),
                                                 Slice(block, 132, 20), Slice(block, 0, 128));
    EXPECT_EQ(test::OracleCrc32(masterKey), LoadLittle<std::uint32_t>(&block[128]));
    return masterKey;
}

/// Reads the key block and opens it with a password.
bool Open(const ScratchFile& file, CipherId cipher, std::u16string_view password, KeyBlock& block) {
    EXPECT_EQ(LoadChunk(file.Path(), KeyBlockHeader(cipher), std::as_writable_bytes(std::span(&block, 1))),
              KeyFileStatus::Done);
    PasswordDigest key = KeyOf(password);
    const bool isOpen = OpenKeyBlock(block, cipher, key);
    EXPECT_EQ(key, PasswordDigest{}) << "not wiped";
    return isOpen;
}

/// The hex dumps of the format's description, each completed by the zeros that it leaves out.
std::vector<Bytes> DocumentedFiles() {
    std::ifstream text(QUILLA_DOCS "/key-file-format.md");
    std::vector<Bytes> files;
    bool inside = false;
    for (std::string line; std::getline(text, line);) {
        if (line.starts_with("```")) {
            inside = !inside;
            if (inside)
                files.emplace_back();
            else
                files.back().resize(kKeyFileSize);
        } else if (inside) {
            const Bytes row = test::FromHex(line.substr(4)); // behind the offset
            files.back().insert(files.back().end(), row.begin(), row.end());
        }
    }
    return files;
}

TEST(KeyFileOracle, TheDocumentedExamplesOpen) {
    const std::vector<Bytes> files = DocumentedFiles();
    ASSERT_EQ(files.size(), 2U);
    std::array<std::uint8_t, 128> numbers;
    std::iota(numbers.begin(), numbers.end(), std::uint8_t{0});
    const std::string masterKey = ToHex(std::as_bytes(std::span(numbers)));
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(ToHex(OpenElsewhere(files[i], kCiphers[i], u"97531", kDefaultTimeout, 0)), masterKey);
        const ScratchFile file(".key");
        file.Write(files[i]);
        VolumeRecord record{};
        record.Flags = 1;
        ASSERT_EQ(LoadSummary(file.Path(), record), KeyFileStatus::Done);
        EXPECT_EQ(record.Cipher, kCiphers[i]);
        EXPECT_EQ(record.Timeout, kDefaultTimeout);
        EXPECT_EQ(record.Flags, 0);

        KeyBlock block;
        EXPECT_FALSE(Open(file, kCiphers[i], u"97532", block));
        ASSERT_TRUE(Open(file, kCiphers[i], u"97531", block));
        DataKey dataKey;
        TakeDataKey(dataKey, block);
        EXPECT_EQ(ToHex(dataKey), masterKey.substr(0, 64));
        for (std::size_t at = 128; at < 132; ++at) {
            Bytes damaged = files[i];
            damaged[72 + at] ^= std::byte{1};
            file.Write(damaged);
            EXPECT_FALSE(Open(file, kCiphers[i], u"97531", block)) << "checksum, byte " << at - 128;
        }
    }
}

TEST(KeyFileOracle, ThePasswordCountsToItsLastUnit) {
    std::u16string password(257, u'x');
    password += u"\U0001F511";
    EXPECT_EQ(ToHex(KeyOf(password)), ToHex(test::OraclePasswordKey(password)));
}

/// Adds the pieces of 4 bytes to those that new keys and vectors had before: none may come again.
void ExpectNew(std::set<std::string>& seen, std::span<const std::byte> random) {
    for (; !random.empty(); random = random.subspan(4))
        EXPECT_TRUE(seen.insert(ToHex(random.first(4))).second) << ToHex(random.first(4));
}

TEST(KeyFileOracle, NewKeysAndVectorsAreRandomInAllBytesAndSealingWipesTheKey) {
    std::set<std::string> seen;
    for (const CipherId cipher : kCiphers)
        for (int i = 0; i < 2; ++i) {
            KeyBlock block{};
            PasswordDigest key = KeyOf(u"the same");
            ASSERT_TRUE(MakeKeyBlock(block, cipher, key));
            EXPECT_EQ(key, PasswordDigest{}) << "not wiped";
            ExpectNew(seen, block.iv);
            key = KeyOf(u"the same");
            ASSERT_TRUE(OpenKeyBlock(block, cipher, key));
            ExpectNew(seen, block.masterKey);
            key = KeyOf(u"the same");
            ASSERT_TRUE(SealKeyBlock(block, cipher, key));
            EXPECT_EQ(key, PasswordDigest{}) << "not wiped";
            ExpectNew(seen, block.iv);
        }
}

} // namespace
} // namespace quilla
