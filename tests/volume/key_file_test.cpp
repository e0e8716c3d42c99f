// The key file walk over damaged and hostile files: it ends, reads nothing outside the file, says what is
// wrong and changes nothing it refuses.

#include "tests/support/key_file_builder.h"
#include "tests/support/scratch_file.h"
#include "volume/key_file.h"

#include <chrono>
#include <gtest/gtest.h>
#ifndef _WIN32
#include "tests/support/file_size_limit.h"
#endif

namespace quilla {
namespace {

using test::BuildKeyFile;
using test::Bytes;
using test::KeyFileBuilder;
using test::ScratchFile;
using test::ToHex;

constexpr std::uint64_t kTimeout = 18'000'000'000;
const ChunkHeader kCastBlock = KeyBlockHeader(CipherId::Cast128);
const Bytes kBlock(152, std::byte{0xC7});

Bytes GoodFile() {
    return BuildKeyFile(6, kTimeout, 0, kBlock);
}

/// The good file with one byte changed.
Bytes Damaged(std::size_t offset, unsigned value) {
    Bytes content = GoodFile();
    content[offset] = static_cast<std::byte>(value);
    return content;
}

TEST(KeyFile, EveryTruncation) {
    const Bytes whole = GoodFile();
    const ScratchFile file(".key");
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        SCOPED_TRACE(size);
        const Bytes content(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        file.Write(content);
        VolumeRecord record{};
        record.Cipher = CipherId::Twofish;
        record.Timeout = 99;
        record.Flags = 1;
        // Up to the last byte of the number that tells the cipher something is missing.
        EXPECT_EQ(ReadSummary(file.Path(), record),
                  size < 64 ? KeyFileStatus::UnknownFormat : KeyFileStatus::Done);
        EXPECT_EQ(record.Cipher, size < 64 ? CipherId::Twofish : CipherId::Cast128);
        EXPECT_EQ(record.Flags, size < 20 ? 1 : 0);
        if (size < 40 || size >= 48) { // within the number it is anything
            EXPECT_EQ(record.Timeout, size < 48 ? 99 : kTimeout);
        }
        Bytes payload(152);
        EXPECT_EQ(ReadKeyFileChunk(file.Path(), kCastBlock, payload),
                  size < 224 ? KeyFileStatus::CannotRead : KeyFileStatus::Done);
        if (size >= 224) {
            EXPECT_EQ(payload, kBlock);
        }
        EXPECT_EQ(file.Read(), content);
    }
}

TEST(KeyFile, ASearchFollowsChunksOfOtherKindsAndSizes) {
    const ScratchFile file(".key");
    file.Write(KeyFileBuilder()
                   .Header(77, 1, 0xDEAD) // what the file header says does not matter
                   .Header(9, 0, 0)
                   .Header(2, 10, 152)
                   .Raw(Bytes(152))
                   .Header(2, 6, 151)
                   .Raw(Bytes(151))
                   .Header(2, 6, 152)
                   .Raw(kBlock)
                   .Get());
    Bytes payload(152);
    EXPECT_EQ(ReadKeyFileChunk(file.Path(), kCastBlock, payload), KeyFileStatus::Done);
    EXPECT_EQ(payload, kBlock);
}

TEST(KeyFile, SearchesForWhatIsNotThereEnd) {
    std::vector<Bytes> contents = {
        BuildKeyFile(10, kTimeout, 0, kBlock), // of another cipher
        Damaged(56 + 6, 1),                    // the whole header must match
        Damaged(56 + 12, 1),
        Bytes(16 * 100'000), // empty chunks
    };
    for (const std::uint64_t length : std::initializer_list<std::uint64_t>{
             0xFFFFFFFFFFFFFFF0, 0xFFFFFFFFFFFFFFFF, 0xFFFFFFFFFFFFFFE0, 0x8000000000000000,
             0x7FFFFFFFFFFFFFFF, 0xFFFFFFFF, 0x100000000, 729, 1'000'000}) {
        // What is searched for stands where a length that wraps would lead: in the place of the file header,
        // which is not looked at, and right behind.
        contents.push_back(
            KeyFileBuilder().Header(2, 6, 152).Header(1, 0, length).Header(2, 6, 152).Raw(Bytes(300)).Get());
    }
    for (const Bytes& content : contents) {
        const ScratchFile file(".key");
        file.Write(content);
        Bytes payload(152);
        EXPECT_EQ(ReadKeyFileChunk(file.Path(), kCastBlock, payload), KeyFileStatus::CannotRead);
        EXPECT_EQ(RewriteKeyFileChunk(file.Path(), kCastBlock, kBlock), KeyFileStatus::CannotRead);
        EXPECT_EQ(payload, Bytes(152));
        EXPECT_EQ(ToHex(file.Read()), ToHex(content));
        EXPECT_TRUE(std::filesystem::remove(file.Location())); // nobody holds it open
    }
}

TEST(KeyFile, ATebibyteOfEmptyChunksKeepsNobodyBusy) {
    const ScratchFile file(".key");
    if (!File::Open(file.Path(), FileAccess::Write, FileSharing::None, FileCreation::CreateNew)
             .SetSize(1ULL << 40))
        GTEST_SKIP() << "no sparse files here";
    const auto start = std::chrono::steady_clock::now();
    Bytes payload(152);
    EXPECT_EQ(ReadKeyFileChunk(file.Path(), kCastBlock, payload), KeyFileStatus::CannotRead);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

TEST(KeyFile, SummaryRefusesWhatItDoesNotKnow) {
    const struct {
        std::size_t offset;
        unsigned value;
        KeyFileStatus status;
    } kCases[] = {
        {0, 1, KeyFileStatus::UnknownFormat}, // file header
        {3, 0x80, KeyFileStatus::UnknownFormat},
        {4, 9, KeyFileStatus::Done}, // of the header only the tag counts
        {8, 0, KeyFileStatus::Done},
        {16, 2, KeyFileStatus::UnknownFormat}, // settings chunk
        {24, 0xFF, KeyFileStatus::Done},       // the summary does not walk by lengths
        {36, 64, KeyFileStatus::Done},         // the mark is not looked at
        {56, 3, KeyFileStatus::UnknownFormat}, // key block chunk
        {60, 10, KeyFileStatus::Done},
        {60, 11, KeyFileStatus::UnknownFormat},
        {61, 1, KeyFileStatus::UnknownFormat},
        {62, 1, KeyFileStatus::UnknownFormat},
    };
    const ScratchFile file(".key");
    for (const auto& damage : kCases) {
        file.Write(Damaged(damage.offset, damage.value));
        VolumeRecord record{};
        EXPECT_EQ(ReadSummary(file.Path(), record), damage.status)
            << "offset " << damage.offset << " value " << damage.value;
    }
}

TEST(KeyFile, WhatCannotBeOpened) {
    const ScratchFile missing(".key");
    const ScratchFile folder(".key");
    std::filesystem::create_directory(folder.Location());
    for (const PathUnit* path : {missing.Path(), folder.Path()}) {
        VolumeRecord record{};
        Bytes payload(152);
        EXPECT_EQ(ReadSummary(path, record), KeyFileStatus::CannotOpen);
        EXPECT_EQ(ReadKeyFileChunk(path, kCastBlock, payload), KeyFileStatus::CannotOpen);
        EXPECT_EQ(RewriteKeyFileChunk(path, kCastBlock, payload), KeyFileStatus::CannotOpen);
    }
    EXPECT_FALSE(missing.Exists());
}

TEST(KeyFile, CreationNeverTouchesAnExistingFile) {
    const ScratchFile file(".key");
    file.Write(kBlock);
    VolumeRecord record{};
    record.Cipher = CipherId::Twofish;
    EXPECT_EQ(CreateKeyFile(file.Path(), record, PasswordDigest{}), KeyFileStatus::CannotCreate);
    EXPECT_EQ(file.Read(), kBlock);
}

TEST(KeyFile, WithoutACipherThereIsNoKeyBlock) {
    const ScratchFile file(".key");
    VolumeRecord record{};
    record.Timeout = kTimeout;
    ASSERT_EQ(CreateKeyFile(file.Path(), record, PasswordDigest{}), KeyFileStatus::Done);
    EXPECT_EQ(ToHex(file.Read()), ToHex(BuildKeyFile(0, kTimeout, 0, {})));
}

TEST(KeyFile, ANumberWithoutACipherNeverWritesAPlainKey) {
    for (const std::uint32_t number : {1U, 5U, 9U, 11U, 0x10006U}) {
        const ScratchFile file(".key");
        VolumeRecord record{};
        record.Cipher = CipherId{number};
        EXPECT_EQ(CreateKeyFile(file.Path(), record, PasswordDigest{}), KeyFileStatus::UnknownFormat);
        EXPECT_FALSE(file.Exists());
    }
}

#ifndef _WIN32

TEST(KeyFile, ReadsAndWritesThatFailAreTold) {
    VolumeRecord record{};
    EXPECT_EQ(ReadSummary("/proc/self/mem", record), KeyFileStatus::CannotRead); // nothing is mapped at 0
    record.Cipher = CipherId::Twofish;
    for (const rlim_t size : {0U, 100U, 224U, 759U}) {
        const ScratchFile file(".key");
        const test::FileSizeLimit limit(size);
        EXPECT_EQ(CreateKeyFile(file.Path(), record, PasswordDigest{}), KeyFileStatus::CannotWrite) << size;
    }
    const ScratchFile file(".key");
    file.Write(GoodFile());
    const test::FileSizeLimit limit(72);
    EXPECT_EQ(RewriteKeyFileChunk(file.Path(), kCastBlock, kBlock), KeyFileStatus::CannotWrite);
}

#endif

} // namespace
} // namespace quilla
