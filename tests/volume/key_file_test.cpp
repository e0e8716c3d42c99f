// The key file walk over damaged and hostile files: it ends, reads nothing outside the file, says what is
// wrong and changes nothing it refuses.

#include "tests/support/key_file_builder.h"
#include "tests/support/scratch_file.h"
#include "volume/key_file.h"

#include <chrono>
#include <cstring>
#include <gtest/gtest.h>
#ifndef _WIN32
#include <csignal>
#include <sys/resource.h>
#endif

namespace quilla {
namespace {

using test::BuildKeyFile;
using test::Bytes;
using test::KeyFileBuilder;
using test::ScratchFile;
using test::ToHex;

constexpr std::uint64_t kTimeout = 18'000'000'000;
const Bytes kBlock(152, std::byte{0xC7});

Bytes GoodFile() {
    return BuildKeyFile(6, kTimeout, 0, kBlock);
}

KeyFileStatus ReadBlock(const ScratchFile& file, CipherId cipher, Bytes& payload) {
    payload.assign(152, std::byte{0x11});
    return ReadKeyFileChunk(file.Path(), KeyBlockHeader(cipher), payload);
}

/// Tries everything a search can be asked for on a file that has none of it; the file must stay as it is.
void ExpectSearchesRefused(const Bytes& content) {
    const ScratchFile file(".key");
    file.Write(content);
    Bytes payload;
    EXPECT_EQ(ReadBlock(file, CipherId::Cast128, payload), KeyFileStatus::CannotRead);
    EXPECT_EQ(RewriteKeyFileChunk(file.Path(), KeyBlockHeader(CipherId::Cast128), kBlock),
              KeyFileStatus::CannotRead);
    EXPECT_EQ(ToHex(file.Read()), ToHex(content));
    EXPECT_TRUE(std::filesystem::remove(file.Location())); // nobody holds it open
}

TEST(KeyFile, EveryTruncation) {
    const Bytes whole = GoodFile();
    ASSERT_EQ(whole.size(), kKeyFileSize);
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        const Bytes content(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        const ScratchFile file(".key");
        file.Write(content);
        VolumeRecord record{};
        record.Cipher = CipherId::Twofish;
        record.Timeout = 99;
        record.Flags = 1;
        const KeyFileStatus status = ReadSummary(file.Path(), record);
        // Up to the last byte of the number that tells the cipher something is missing.
        EXPECT_EQ(status, size < 64 ? KeyFileStatus::UnknownFormat : KeyFileStatus::Done) << size;
        EXPECT_EQ(record.Cipher, size < 64 ? CipherId::Twofish : CipherId::Cast128) << size;
        EXPECT_EQ(record.Flags, size < 20 ? 1 : 0) << size;
        if (size < 40 || size >= 48) { // within the number it is anything
            EXPECT_EQ(record.Timeout, size < 48 ? 99 : kTimeout) << size;
        }
        Bytes payload;
        EXPECT_EQ(ReadBlock(file, CipherId::Cast128, payload),
                  size < 224 ? KeyFileStatus::CannotRead : KeyFileStatus::Done)
            << size;
        if (size >= 224) {
            EXPECT_EQ(payload, kBlock);
        }
        EXPECT_EQ(file.Read(), content);
    }
}

TEST(KeyFile, HostileLengths) {
    constexpr std::uint64_t kLengths[] = {0xFFFFFFFFFFFFFFF0,
                                          0xFFFFFFFFFFFFFFFF,
                                          0xFFFFFFFFFFFFFFE0,
                                          0x8000000000000000,
                                          0x7FFFFFFFFFFFFFFF,
                                          0x7FFFFFFFFFFFFFF0,
                                          0xFFFFFFFF,
                                          0x100000000,
                                          729,
                                          745,
                                          1'000'000};
    for (const std::uint64_t length : kLengths) {
        Bytes content = KeyFileBuilder().Header(0, 0, 16).Header(1, 0, length).Get();
        const Bytes rest = GoodFile();
        content.insert(content.end(), rest.begin() + 32, rest.end());
        ExpectSearchesRefused(content);
    }
}

TEST(KeyFile, NoLengthLeadsBackwards) {
    // The place of the file header, which is not looked at, holds what is searched for.
    for (const std::uint64_t length : {0xFFFFFFFFFFFFFFE0, 0xFFFFFFFFFFFFFFF0})
        ExpectSearchesRefused(KeyFileBuilder().Header(2, 6, 152).Header(1, 0, length).Raw(Bytes(300)).Get());
}

TEST(KeyFile, LengthsThatMatchNothingElseAreFollowed) {
    // Chunks of other kinds and sizes may stand before the wanted one, empty ones included.
    const ScratchFile file(".key");
    file.Write(KeyFileBuilder()
                   .Header(77, 1, 0xDEAD)
                   .Header(9, 0, 0)
                   .Header(2, 10, 3)
                   .Raw(Bytes(3))
                   .Header(2, 6, 151)
                   .Raw(Bytes(151))
                   .Header(2, 6, 152)
                   .Raw(kBlock)
                   .Get());
    Bytes payload;
    EXPECT_EQ(ReadBlock(file, CipherId::Cast128, payload), KeyFileStatus::Done);
    EXPECT_EQ(payload, kBlock);
}

TEST(KeyFile, TheWholeHeaderMustMatch) {
    const Bytes good = GoodFile();
    ScratchFile file(".key");
    Bytes payload;
    file.Write(good);
    EXPECT_EQ(ReadBlock(file, CipherId::Twofish, payload), KeyFileStatus::CannotRead); // param 6, not 10
    EXPECT_EQ(payload, Bytes(152, std::byte{0x11}));
    Bytes reservedSet = good;
    reservedSet[56 + 6] = std::byte{1};
    ExpectSearchesRefused(reservedSet);
    Bytes highLength = good;
    highLength[56 + 12] = std::byte{1};
    ExpectSearchesRefused(highLength);
}

TEST(KeyFile, EndlessEmptyChunksEnd) {
    ExpectSearchesRefused(Bytes(16 * 100'000));
    const ScratchFile file(".key"); // sparse, one tebibyte of empty chunks
    if (!File::Open(file.Path(), FileAccess::Write, FileSharing::None, FileCreation::CreateNew)
             .SetSize(1ULL << 40))
        GTEST_SKIP() << "no sparse files here";
    const auto start = std::chrono::steady_clock::now();
    Bytes payload;
    EXPECT_EQ(ReadBlock(file, CipherId::Cast128, payload), KeyFileStatus::CannotRead);
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
        {63, 0x80, KeyFileStatus::UnknownFormat},
    };
    for (const auto& damage : kCases) {
        Bytes content = GoodFile();
        content[damage.offset] = static_cast<std::byte>(damage.value);
        const ScratchFile file(".key");
        file.Write(content);
        VolumeRecord record{};
        EXPECT_EQ(ReadSummary(file.Path(), record), damage.status)
            << "offset " << damage.offset << " value " << damage.value;
        EXPECT_EQ(file.Read(), content);
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
        EXPECT_EQ(ReadKeyFileChunk(path, KeyBlockHeader(CipherId::Cast128), payload),
                  KeyFileStatus::CannotOpen);
        EXPECT_EQ(RewriteKeyFileChunk(path, KeyBlockHeader(CipherId::Cast128), payload),
                  KeyFileStatus::CannotOpen);
    }
    EXPECT_FALSE(missing.Exists());
}

TEST(KeyFile, CreationNeverTouchesAnExistingFile) {
    const ScratchFile file(".key");
    file.Write(Bytes(5, std::byte{0x42}));
    VolumeRecord record{};
    record.Cipher = CipherId::Twofish;
    EXPECT_EQ(CreateKeyFile(file.Path(), record, PasswordDigest{}), KeyFileStatus::CannotCreate);
    EXPECT_EQ(file.Read(), Bytes(5, std::byte{0x42}));
}

TEST(KeyFile, WithoutACipherThereIsNoKeyBlock) {
    const ScratchFile file(".key");
    VolumeRecord record{};
    record.Timeout = kTimeout;
    ASSERT_EQ(CreateKeyFile(file.Path(), record, PasswordDigest{}), KeyFileStatus::Done);
    EXPECT_EQ(ToHex(file.Read()), ToHex(BuildKeyFile(0, kTimeout, 0, {})));
    record.Cipher = CipherId::Twofish;
    EXPECT_EQ(ReadSummary(file.Path(), record), KeyFileStatus::Done);
    EXPECT_EQ(record.Cipher, CipherId::None);
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

TEST(KeyFile, OnlyBitZeroOfTheFlagsIsStored) {
    const ScratchFile file(".key");
    VolumeRecord record{};
    record.Flags = 0xFF;
    ASSERT_EQ(CreateKeyFile(file.Path(), record, PasswordDigest{}), KeyFileStatus::Done);
    EXPECT_EQ(ToHex(file.Read()), ToHex(BuildKeyFile(0, 0, 1, {})));
}

#ifndef _WIN32

TEST(KeyFile, DevicesEndTheSearch) {
    Bytes payload(152);
    EXPECT_EQ(ReadKeyFileChunk("/dev/zero", KeyBlockHeader(CipherId::Cast128), payload),
              KeyFileStatus::CannotRead);
    VolumeRecord record{};
    EXPECT_EQ(ReadSummary("/proc/self/mem", record), KeyFileStatus::CannotRead); // nothing is mapped at 0
}

/// Files cannot grow beyond a size while it lives.
class FileSizeLimit {
  public:
    explicit FileSizeLimit(rlim_t size) : former_(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &limit_);
        const rlimit lower{size, limit_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &lower);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &limit_);
        static_cast<void>(std::signal(SIGXFSZ, former_));
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

  private:
    void (*former_)(int);
    rlimit limit_{};
};

TEST(KeyFile, WritesThatFailAreTold) {
    VolumeRecord record{};
    record.Cipher = CipherId::Twofish;
    for (const rlim_t size : {0U, 100U, 224U, 759U}) {
        const ScratchFile file(".key");
        const FileSizeLimit limit(size);
        EXPECT_EQ(CreateKeyFile(file.Path(), record, PasswordDigest{}), KeyFileStatus::CannotWrite) << size;
    }
    const ScratchFile file(".key");
    file.Write(GoodFile());
    const FileSizeLimit limit(72);
    EXPECT_EQ(RewriteKeyFileChunk(file.Path(), KeyBlockHeader(CipherId::Cast128), kBlock),
              KeyFileStatus::CannotWrite);
}

#endif

} // namespace
} // namespace quilla
