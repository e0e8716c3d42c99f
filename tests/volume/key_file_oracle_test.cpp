// Key files in both directions, with other libraries on the far side: a file built by the test opens here,
// and a file written here opens for the test.

#include "tests/support/key_file_builder.h"
#include "tests/support/oracle.h"
#include "tests/support/scratch_file.h"
#include "volume/key_file.h"
#include "volume/sha1.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <random>

namespace quilla {
namespace {

using test::BuildKeyFile;
using test::Bytes;
using test::KeyFileBuilder;
using test::ScratchFile;
using test::ToHex;

constexpr std::u16string_view kPasswords[] = {u"", u"97531", u"correct horse battery staple",
                                              u"Gr\u00FC\u00DFe \u4E16\u754C", u"\xD83D\xDE00"};
constexpr CipherId kCiphers[] = {CipherId::Cast128, CipherId::Twofish};

Bytes Slice(const Bytes& bytes, std::size_t offset, std::size_t size) {
    const auto from = bytes.begin() + static_cast<std::ptrdiff_t>(offset);
    return Bytes(from, from + static_cast<std::ptrdiff_t>(size));
}

class KeyFileOracle : public testing::Test {
  protected:
    Bytes Random(std::size_t size) {
        Bytes bytes(size);
        for (std::byte& byte : bytes)
            byte = static_cast<std::byte>(generator_());
        return bytes;
    }

  private:
    std::mt19937 generator_{4711};
};

TEST_F(KeyFileOracle, FilesBuiltElsewhereOpenHere) {
    for (const CipherId cipher : kCiphers) {
        for (const std::u16string_view password : kPasswords) {
            const Bytes masterKey = Random(128);
            const Bytes iv = Random(20);
            const auto number = static_cast<std::uint16_t>(cipher);
            const Bytes block =
                KeyFileBuilder()
                    .Raw(test::OracleEncipher(number, test::OraclePasswordKey(password), iv, masterKey))
                    .Number32(test::OracleCrc32(masterKey))
                    .Raw(iv)
                    .Get();
            const ScratchFile file(".key");
            file.Write(BuildKeyFile(number, 42, 0, block));

            VolumeRecord record{};
            record.Flags = 1;
            ASSERT_EQ(ReadSummary(file.Path(), record), KeyFileStatus::Done);
            EXPECT_EQ(record.Cipher, cipher);
            EXPECT_EQ(record.Timeout, 42U);
            EXPECT_EQ(record.Flags, 0);

            KeyBlock keyBlock;
            ASSERT_EQ(ReadKeyFileChunk(file.Path(), KeyBlockHeader(cipher),
                                       std::as_writable_bytes(std::span(&keyBlock, 1))),
                      KeyFileStatus::Done);
            PasswordDigest key;
            PasswordKey(key, TextView(u"wrong"));
            KeyBlock unopened = keyBlock;
            EXPECT_FALSE(OpenKeyBlock(unopened, cipher, key));
            PasswordKey(key, password);
            ASSERT_TRUE(OpenKeyBlock(keyBlock, cipher, key));
            EXPECT_EQ(key, PasswordDigest{}); // wiped
            DataKey dataKey;
            TakeDataKey(dataKey, keyBlock);
            EXPECT_EQ(ToHex(dataKey), ToHex(Slice(masterKey, 0, 32)));
        }
    }
}

/// Checks a written file piece by piece; the plain master key of its block.
Bytes OpenElsewhere(const Bytes& content, CipherId cipher, std::u16string_view password,
                    std::uint64_t timeout, std::uint32_t options) {
    EXPECT_EQ(content.size(), 760U);
    const auto number = static_cast<std::uint16_t>(cipher);
    const Bytes block = Slice(content, 72, 152);
    EXPECT_EQ(ToHex(content), ToHex(BuildKeyFile(number, timeout, options, block)));
    const Bytes masterKey = test::OracleDecipher(number, test::OraclePasswordKey(password),
                                                 Slice(block, 132, 20), Slice(block, 0, 128));
    EXPECT_EQ(test::OracleCrc32(masterKey), LoadLittle<std::uint32_t>(&block[128]));
    return masterKey;
}

TEST_F(KeyFileOracle, FilesWrittenHereOpenElsewhere) {
    for (const CipherId cipher : kCiphers) {
        for (const std::u16string_view password : kPasswords) {
            VolumeRecord record{};
            record.Cipher = cipher;
            record.Timeout = 0x0123456789ABCDEF;
            record.Flags = 1;
            PasswordDigest key;
            PasswordKey(key, password);
            const ScratchFile file(".key");
            const ScratchFile other(".key");
            ASSERT_EQ(CreateKeyFile(file.Path(), record, key), KeyFileStatus::Done);
            ASSERT_EQ(CreateKeyFile(other.Path(), record, key), KeyFileStatus::Done);
            const Bytes one = OpenElsewhere(file.Read(), cipher, password, record.Timeout, 1);
            const Bytes two = OpenElsewhere(other.Read(), cipher, password, record.Timeout, 1);
            EXPECT_NE(one, two) << "master keys must not repeat";
        }
    }
}

TEST_F(KeyFileOracle, ANewPasswordKeepsTheMasterKeyAndChecksum) {
    for (const CipherId cipher : kCiphers) {
        VolumeRecord record{};
        record.Cipher = cipher;
        PasswordDigest key;
        PasswordKey(key, TextView(u"old"));
        const ScratchFile file(".key");
        ASSERT_EQ(CreateKeyFile(file.Path(), record, key), KeyFileStatus::Done);
        const Bytes before = file.Read();
        const Bytes masterKey = OpenElsewhere(before, cipher, u"old", 0, 0);

        KeyBlock block;
        const auto bytes = std::as_writable_bytes(std::span(&block, 1));
        ASSERT_EQ(ReadKeyFileChunk(file.Path(), KeyBlockHeader(cipher), bytes), KeyFileStatus::Done);
        ASSERT_TRUE(OpenKeyBlock(block, cipher, key));
        for (const std::u16string_view password : {u"new", u"new"}) { // the same again changes the IV, too
            const Bytes last = file.Read();
            KeyBlock sealed = block;
            PasswordKey(key, TextView(password));
            ASSERT_TRUE(SealKeyBlock(sealed, cipher, key));
            ASSERT_EQ(RewriteKeyFileChunk(file.Path(), KeyBlockHeader(cipher),
                                          std::as_bytes(std::span(&sealed, 1))),
                      KeyFileStatus::Done);
            const Bytes now = file.Read();
            EXPECT_EQ(OpenElsewhere(now, cipher, password, 0, 0), masterKey);
            EXPECT_EQ(Slice(now, 200, 4), Slice(before, 200, 4));
            EXPECT_NE(Slice(now, 204, 20), Slice(last, 204, 20));
            EXPECT_NE(Slice(now, 72, 128), Slice(last, 72, 128));
        }
    }
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

TEST_F(KeyFileOracle, TheDocumentedExamplesOpen) {
    const std::vector<Bytes> files = DocumentedFiles();
    ASSERT_EQ(files.size(), 2U);
    Bytes masterKey(128);
    for (std::size_t i = 0; i < masterKey.size(); ++i)
        masterKey[i] = static_cast<std::byte>(i);
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(ToHex(OpenElsewhere(files[i], kCiphers[i], u"97531", kDefaultTimeout, 0)),
                  ToHex(masterKey));
        const ScratchFile file(".key");
        file.Write(files[i]);
        KeyBlock block;
        ASSERT_EQ(ReadKeyFileChunk(file.Path(), KeyBlockHeader(kCiphers[i]),
                                   std::as_writable_bytes(std::span(&block, 1))),
                  KeyFileStatus::Done);
        PasswordDigest key;
        PasswordKey(key, TextView(u"97531"));
        EXPECT_TRUE(OpenKeyBlock(block, kCiphers[i], key));
        EXPECT_EQ(ToHex(block.masterKey), ToHex(masterKey));
    }
}

} // namespace
} // namespace quilla
