// The chunk that slows down guessing: what is read from files of every kind, what a change of the password
// writes and what it leaves alone.

#include "tests/support/hex.h"
#include "tests/support/key_file_builder.h"
#include "tests/support/scratch_file.h"
#include "volume/key_strength.h"

#include <cstring>
#include <gtest/gtest.h>

namespace quilla {
namespace {

using test::Bytes;
using test::ScratchFile;

constexpr Argon2Cost kCheap = {.memory = 8 * 1024, .passes = 1, .lanes = 1};
constexpr PasswordDigest kOldKey = {std::byte{1}}, kNewKey = {std::byte{2}};

Bytes ChunkBytes(std::uint32_t memory, std::uint32_t passes, std::uint32_t lanes, std::uint32_t algorithm,
                 std::uint32_t tag = 0x51544B44, std::uint64_t length = 48) {
    Bytes chunk(64, std::byte{0x5A});
    StoreLittle(&chunk[0], tag);
    StoreLittle(&chunk[4], 0U);
    StoreLittle(&chunk[8], length);
    const std::uint32_t numbers[] = {memory, passes, lanes, algorithm};
    for (std::size_t i = 0; i < 4; ++i)
        StoreLittle(&chunk[48 + 4 * i], numbers[i]);
    return chunk;
}

/// A file with foreign chunks around the usual ones and options of all kinds.
Bytes ForeignFile(const Bytes& tail = {}) {
    Bytes file = test::BuildKeyFile(10, 7, 0xA5A5A5A5, Bytes(152, std::byte{0x11}));
    const Bytes foreign = {std::byte{9}, std::byte{0}, std::byte{8}, std::byte{7}, {},          {}, {},
                           {},           std::byte{3}, {},           {},           {},          {}, {},
                           {},           {},           std::byte{1}, std::byte{2}, std::byte{3}};
    file.insert(file.begin() + 16, foreign.begin(), foreign.end());
    file.insert(file.end(), tail.begin(), tail.end());
    file.insert(file.end(), foreign.begin(), foreign.end());
    return file;
}

TEST(KeyStrengthChunk, IsAbsentOrUnderstoodOrUnknown) {
    struct Case {
        Bytes tail;
        KeyFileStatus status;
        bool isPresent;
    };
    const Bytes good = ChunkBytes(8192, 64, 16, 1);
    const Case cases[] = {
        {{}, KeyFileStatus::Done, false},
        {good, KeyFileStatus::Done, true},
        {ChunkBytes(1 << 20, 1, 1, 1), KeyFileStatus::Done, true},
        {ChunkBytes(8191, 1, 1, 1), KeyFileStatus::UnknownFormat, false},
        {ChunkBytes((1 << 20) + 1, 1, 1, 1), KeyFileStatus::UnknownFormat, false},
        {ChunkBytes(8192, 0, 1, 1), KeyFileStatus::UnknownFormat, false},
        {ChunkBytes(8192, 65, 1, 1), KeyFileStatus::UnknownFormat, false},
        {ChunkBytes(8192, 1, 0, 1), KeyFileStatus::UnknownFormat, false},
        {ChunkBytes(8192, 1, 17, 1), KeyFileStatus::UnknownFormat, false},
        {ChunkBytes(8192, 1, 1, 2), KeyFileStatus::UnknownFormat, false},
        {ChunkBytes(8192, 1, 1, 1, 0x51544B44, 47), KeyFileStatus::UnknownFormat, false},
        {ChunkBytes(8192, 1, 1, 1, 0x51544B45), KeyFileStatus::Done, false},
        {Bytes(good.begin(), good.end() - 1), KeyFileStatus::UnknownFormat,
         false}, // takes the byte behind it
    };
    for (const Case& c : cases) {
        const ScratchFile file(".key");
        Bytes content = test::BuildKeyFile(10, 7, 1, Bytes(152));
        content.insert(content.end(), c.tail.begin(), c.tail.end());
        file.Write(content);
        std::optional<KeyStrength> strength;
        EXPECT_EQ(LoadKeyStrength(file.Path(), strength), c.status) << &c - cases;
        EXPECT_EQ(strength.has_value(), c.isPresent) << &c - cases;
    }
    const ScratchFile missing(".key");
    std::optional<KeyStrength> strength;
    EXPECT_EQ(LoadKeyStrength(missing.Path(), strength), KeyFileStatus::CannotOpen);
}

/// The block of a new master key under a key and strength.
KeyBlock Seal(PasswordDigest key, const KeyStrength* strength) {
    KeyBlock block{};
    if (strength != nullptr && StrengthenKey(key, *strength) != Argon2Result::Done)
        ADD_FAILURE() << "not strengthened";
    EXPECT_TRUE(MakeKeyBlock(block, CipherId::Twofish, key));
    return block;
}

bool Opens(const ScratchFile& file, PasswordDigest key) {
    KeyBlock block;
    std::optional<KeyStrength> strength;
    EXPECT_EQ(LoadSealedKey(file.Path(), CipherId::Twofish, block, strength), KeyFileStatus::Done);
    if (strength && StrengthenKey(key, *strength) != Argon2Result::Done)
        ADD_FAILURE() << "not strengthened";
    return OpenKeyBlock(block, CipherId::Twofish, key);
}

TEST(KeyStrengthChunk, ComesAndGoesWithChangesThatKeepEveryOtherByte) {
    const ScratchFile file(".key");
    file.Write(ForeignFile());
    KeyStrength first, second;
    ASSERT_TRUE(MakeKeyStrength(first, kCheap) && MakeKeyStrength(second, kCheap));
    EXPECT_NE(first.salt, second.salt);
    const KeyStrength* const steps[] = {nullptr, &first, &second, nullptr, &first, nullptr};
    PasswordDigest key = kOldKey;
    for (const KeyStrength* strength : steps) {
        const PasswordDigest next = key == kOldKey ? kNewKey : kOldKey;
        const KeyBlock block = Seal(next, strength);
        ASSERT_EQ(ChangeKeyBlock(file.Path(), CipherId::Twofish, block, strength), KeyFileStatus::Done);
        EXPECT_TRUE(Opens(file, next));
        EXPECT_FALSE(Opens(file, key));
        key = next;
        Bytes expected = ForeignFile();
        std::memcpy(&expected[16 + 19 + 40 + 16], &block, sizeof(block));
        if (strength != nullptr) {
            const Bytes chunk = ChunkBytes(kCheap.memory, kCheap.passes, kCheap.lanes, 1);
            expected.insert(expected.end(), chunk.begin(), chunk.end());
            std::memcpy(&expected[expected.size() - 48], strength->salt.data(), 32);
        }
        EXPECT_EQ(test::ToHex(file.Read()), test::ToHex(expected));
    }
}

TEST(KeyStrengthChunk, RefusedChangesLeaveTheFileAndNothingBesideIt) {
    const ScratchFile file(".key");
    KeyStrength strength;
    ASSERT_TRUE(MakeKeyStrength(strength, kCheap));
    const KeyBlock block{};
    const auto expect = [&](const Bytes& content, CipherId cipher, KeyFileStatus status) {
        file.Write(content);
        EXPECT_EQ(ChangeKeyBlock(file.Path(), cipher, block, &strength), status);
        EXPECT_EQ(file.Read(), content);
        EXPECT_FALSE(std::filesystem::exists(file.Location().string() + ".quilla-new"));
    };
    Bytes cut = test::BuildKeyFile(10, 7, 1, Bytes(152));
    expect(cut, CipherId::Cast128, KeyFileStatus::UnknownFormat); // no key block of that cipher
    cut.pop_back();
    expect(cut, CipherId::Twofish, KeyFileStatus::UnknownFormat);
    expect(ForeignFile(ChunkBytes(1, 1, 1, 1)), CipherId::Twofish, KeyFileStatus::UnknownFormat);
    const Bytes good = ForeignFile();
    file.Write(good);
    const File other =
        File::Open(file.Path(), FileAccess::Read, FileSharing::Read, FileCreation::OpenExisting);
    EXPECT_EQ(ChangeKeyBlock(file.Path(), CipherId::Twofish, block, &strength), KeyFileStatus::CannotOpen);
    EXPECT_EQ(AppendKeyStrength(file.Path(), strength), KeyFileStatus::CannotOpen);
    EXPECT_EQ(file.Read(), good);
}

TEST(KeyStrengthChunk, AppendedFileEqualsOneWrittenAtOnceAndReplacementsKeepPermissions) {
    VolumeRecord record{};
    record.Cipher = CipherId::Twofish;
    KeyStrength strength;
    ASSERT_TRUE(MakeKeyStrength(strength, kCheap));
    const ScratchFile once(".key"), later(".key");
    ASSERT_EQ(CreateKeyFile(once.Path(), record, kOldKey, &strength), KeyFileStatus::Done);
    ASSERT_EQ(CreateKeyFile(later.Path(), record, kOldKey), KeyFileStatus::Done);
    EXPECT_EQ(later.Read().size(), kKeyFileSize);
    ASSERT_EQ(AppendKeyStrength(later.Path(), strength), KeyFileStatus::Done);
    EXPECT_EQ(AppendKeyStrength(later.Path(), strength), KeyFileStatus::UnknownFormat) << "one is enough";
    const Bytes one = once.Read(), other = later.Read();
    ASSERT_EQ(one.size(), kStrongKeyFileSize);
    EXPECT_TRUE(std::equal(one.begin() + 224, one.end(), other.begin() + 224, other.end()));
#ifndef _WIN32
    std::filesystem::permissions(once.Location(), std::filesystem::perms(0640));
    ASSERT_EQ(ChangeKeyBlock(once.Path(), CipherId::Twofish, KeyBlock{}, nullptr), KeyFileStatus::Done);
    EXPECT_EQ(std::filesystem::status(once.Location()).permissions(), std::filesystem::perms(0640));
#endif
}

} // namespace
} // namespace quilla
