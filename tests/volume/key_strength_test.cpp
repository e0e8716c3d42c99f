// The chunk that slows down guessing: what is read from files of every kind, what a change of the password
// writes and what it leaves alone.

#include "tests/support/hex.h"
#include "tests/support/key_file_builder.h"
#include "tests/support/scratch_file.h"
#include "volume/key_strength.h"

#include <cstring>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>

#ifdef _WIN32
#include <windows.h>

#include <sddl.h>
#else
#include "tests/support/file_size_limit.h"

#include <sys/xattr.h>
#endif

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

/// A process killed in a change leaves the new file beside the old one. Who has the key file open next knows
/// that nobody is at work; who cannot open it does not.
TEST(KeyStrengthChunk, WhatAnUnfinishedChangeHasLeftGoesWithTheNextUse) {
    const ScratchFile file(".key");
    std::filesystem::path beside = file.Location();
    beside += ".quilla-new";
    const auto leave = [&] { std::ofstream(beside) << "half"; };
    VolumeRecord record{};
    std::optional<KeyStrength> strength;
    KeyBlock block{};
    Bytes settings(24);
    const std::function<KeyFileStatus()> uses[] = {
        [&] { return LoadSummary(file.Path(), record); },
        [&] { return LoadKeyStrength(file.Path(), strength); },
        [&] { return LoadSealedKey(file.Path(), CipherId::Twofish, block, strength); },
        [&] { return StoreChunk(file.Path(), kSettingsHeader, settings); },
        [&] { return ChangeKeyBlock(file.Path(), CipherId::Twofish, block, nullptr); },
    };
    file.Write(test::BuildKeyFile(10, 7, 1, Bytes(152)));
    for (const auto& use : uses) {
        leave();
        EXPECT_EQ(use(), KeyFileStatus::Done) << &use - uses;
        EXPECT_FALSE(std::filesystem::exists(beside)) << &use - uses;
    }
    leave();
    {
        const File other =
            File::Open(file.Path(), FileAccess::ReadWrite, FileSharing::None, FileCreation::OpenExisting);
        EXPECT_EQ(LoadSummary(file.Path(), record), KeyFileStatus::CannotOpen);
        EXPECT_TRUE(std::filesystem::exists(beside)) << "it may be the other's";
    }
    std::filesystem::remove(beside);
}

/// What does not come to its end goes with the process that wrote it.
TEST(KeyStrengthChunk, ATransientFileHasNoNameUntilItIsKept) {
    const ScratchFile file;
    const Bytes content(100, std::byte{7});
    {
        const File unfinished = File::CreateTransient(file.Path());
        ASSERT_TRUE(unfinished.IsOpen());
        EXPECT_EQ(unfinished.WriteAt(0, content).bytes, content.size());
    }
    EXPECT_FALSE(file.Exists());
    File kept = File::CreateTransient(file.Path());
    EXPECT_EQ(kept.WriteAt(0, content).bytes, content.size());
    EXPECT_TRUE(kept.Keep(file.Path()));
    kept.Close();
    EXPECT_EQ(file.Read(), content);
}

#ifdef _WIN32
/// The attributes and the access list of a file, as text.
std::wstring DescribeProtection(const ScratchFile& file) {
    alignas(SECURITY_DESCRIPTOR) std::byte descriptor[4096];
    DWORD size = 0;
    wchar_t* text = nullptr;
    EXPECT_TRUE(
        GetFileSecurityW(file.Path(), DACL_SECURITY_INFORMATION, descriptor, sizeof(descriptor), &size));
    EXPECT_TRUE(ConvertSecurityDescriptorToStringSecurityDescriptorW(
        descriptor, SDDL_REVISION_1, DACL_SECURITY_INFORMATION, &text, nullptr));
    const std::wstring all = std::to_wstring(GetFileAttributesW(file.Path())) + L' ' + text;
    LocalFree(text);
    return all;
}

/// Makes a file one that only its owner may read, hidden and not indexed.
void Protect(const ScratchFile& file) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    ASSERT_TRUE(ConvertStringSecurityDescriptorToSecurityDescriptorW(L"D:P(A;;FA;;;OW)(A;;FA;;;BA)",
                                                                     SDDL_REVISION_1, &descriptor, nullptr));
    EXPECT_TRUE(SetFileSecurityW(file.Path(), DACL_SECURITY_INFORMATION, descriptor));
    LocalFree(descriptor);
    EXPECT_TRUE(SetFileAttributesW(file.Path(), FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_ARCHIVE));
}
#else
/// Permissions, the access list behind them and an attribute of the user's.
std::string DescribeProtection(const ScratchFile& file) {
    std::string all = std::to_string(static_cast<unsigned>(status(file.Location()).permissions()));
    for (const char* const name : {"system.posix_acl_access", "user.note"}) {
        std::byte value[256];
        const ssize_t size = getxattr(file.Path(), name, value, sizeof(value));
        all += size < 0 ? " none" : " " + test::ToHex(std::span(value).first(static_cast<std::size_t>(size)));
    }
    return all;
}

/// Lets one other user read the file besides its group.
void Protect(const ScratchFile& file) {
    std::filesystem::permissions(file.Location(), std::filesystem::perms(0640));
    const std::uint32_t list[] = {2,          0x00060001, 0xFFFFFFFF, 0x00040002, 12345,     0x00040004,
                                  0xFFFFFFFF, 0x00040010, 0xFFFFFFFF, 0x00000020, 0xFFFFFFFF};
    if (setxattr(file.Path(), "system.posix_acl_access", list, sizeof(list), 0) != 0 ||
        setxattr(file.Path(), "user.note", "mine", 4, 0) != 0)
        std::fputs("no extended attributes here\n", stderr);
}

TEST(KeyStrengthChunk, APieceThatAFullDiskTakesIsNoSuccess) {
    const ScratchFile file(".key");
    VolumeRecord record{};
    record.Cipher = CipherId::Twofish;
    KeyStrength strength;
    ASSERT_TRUE(MakeKeyStrength(strength, kCheap));
    ASSERT_EQ(CreateKeyFile(file.Path(), record, kOldKey), KeyFileStatus::Done);
    const Bytes before = file.Read();
    for (const rlim_t size : {kKeyFileSize, kKeyFileSize + 20}) {
        file.Write(before);
        const test::FileSizeLimit limit(size);
        EXPECT_EQ(AppendKeyStrength(file.Path(), strength), KeyFileStatus::CannotWrite) << size;
    }
    file.Write(before);
    const test::FileSizeLimit limit(kKeyFileSize + 20);
    EXPECT_EQ(ChangeKeyBlock(file.Path(), CipherId::Twofish, KeyBlock{}, &strength),
              KeyFileStatus::CannotWrite);
    EXPECT_EQ(file.Read(), before);
}
#endif

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
    const auto usual = DescribeProtection(once);
    Protect(once);
    const auto expected = DescribeProtection(once);
    EXPECT_NE(expected, usual);
    ASSERT_EQ(ChangeKeyBlock(once.Path(), CipherId::Twofish, KeyBlock{}, nullptr), KeyFileStatus::Done);
    EXPECT_EQ(DescribeProtection(once), expected);
}

} // namespace
} // namespace quilla
