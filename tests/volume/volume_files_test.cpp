// Volume and key files as the user meets them on Windows: what is created, changed and removed, and the text
// of every message box.

#include "platform/win32/handle.h"
#include "tests/support/key_file_builder.h"
#include "tests/support/message_box_watcher.h"
#include "tests/support/scratch_file.h"
#include "volume/sha1.h"
#include "volume/volume_files.h"
#include "volume/volume_password.h"

#include <gtest/gtest.h>

namespace quilla {
namespace {

using test::BuildKeyFile;
using test::Bytes;
using test::MessageBoxWatcher;
using test::ScratchFile;
using test::SeenBox;
using test::ToHex;

PasswordDigest KeyOf(TextView password) {
    PasswordDigest key;
    PasswordKey(key, password);
    return key;
}

std::wstring SystemText(DWORD error) {
    wchar_t text[260];
    const DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                                        error, 0, text, 260, nullptr);
    return std::wstring(text, length);
}

class VolumeFilesTest : public testing::Test {
  protected:
    VolumeFilesTest() { GetProcessHandleCount(GetCurrentProcess(), &handlesBefore_); }

    VolumeRecord Record(CipherId cipher = CipherId::Cast128) const {
        VolumeRecord record{};
        CopyText(record.Path, raw_.Path());
        CopyText(record.KeyPath, key_.Path());
        record.Cipher = cipher;
        record.Size = kDefaultVolumeSize;
        record.Timeout = kDefaultTimeout;
        return record;
    }

    /// The boxes since the last call must be exactly these texts, each with the key file's path in between.
    void ExpectBoxes(std::initializer_list<std::pair<const wchar_t*, DWORD>> expected) {
        const std::vector<SeenBox> boxes = watcher_.Take();
        ASSERT_EQ(boxes.size(), expected.size());
        std::size_t index = 0;
        for (const auto& [prefix, error] : expected) {
            const SeenBox& box = boxes[index++];
            std::wstring text = std::wstring(prefix) + key_.Path();
            if (error != 0)
                text += L"\n" + SystemText(error);
            EXPECT_EQ(box.text, text);
            EXPECT_EQ(box.caption, L"Quilla Error");
            EXPECT_TRUE(box.errorIcon);
        }
    }

    /// Nothing keeps the key file open: it can be had for oneself.
    void ExpectKeyFileClosed() const {
        EXPECT_TRUE(
            UniqueFile(CreateFileW(key_.Path(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr)));
    }

    MessageBoxWatcher watcher_;
    ScratchFile raw_{".raw"};
    ScratchFile key_{".key"};
    DWORD handlesBefore_ = 0;
};

TEST_F(VolumeFilesTest, CreatesBothFilesAndReadsThemBack) {
    for (const CipherId cipher : {CipherId::Cast128, CipherId::Twofish}) {
        const VolumeRecord record = Record(cipher);
        ASSERT_TRUE(BuildVolumeFiles(record, KeyOf(L"97531")));
        EXPECT_EQ(std::filesystem::file_size(raw_.Location()), 1'048'576U);
        EXPECT_EQ(std::filesystem::file_size(key_.Location()), 760U);

        VolumeRecord read = Record(CipherId::None);
        read.Size = 0;
        read.Timeout = 0;
        read.Flags = 1;
        read.DeviceHandle = 7;
        ReadVolumeInfo(read);
        EXPECT_EQ(read.Size, 1'048'576U);
        EXPECT_EQ(read.Cipher, cipher);
        EXPECT_EQ(read.Timeout, kDefaultTimeout);
        EXPECT_EQ(read.Flags, 0);
        EXPECT_EQ(read.DeviceHandle, 0U);
        EXPECT_TRUE(RemoveVolumeFiles(record));
        EXPECT_FALSE(raw_.Exists());
        EXPECT_FALSE(key_.Exists());
    }
    ExpectBoxes({});
}

TEST_F(VolumeFilesTest, WithoutACipherThereIsNoKeyFile) {
    VolumeRecord record = Record(CipherId::None);
    record.Size = 5ULL << 30;
    ASSERT_TRUE(BuildVolumeFiles(record, PasswordDigest{}));
    EXPECT_FALSE(key_.Exists());
    ReadVolumeInfo(record);
    EXPECT_EQ(record.Size, 5ULL << 30);
    EXPECT_TRUE(FieldText(record.KeyPath).empty()); // it could not be opened
    record.Timeout = 5;
    record.Flags = 1;
    ReadVolumeInfo(record); // now without a key path
    EXPECT_EQ(record.Timeout, 0U);
    EXPECT_EQ(record.Flags, 0);
    EXPECT_TRUE(UpdateTimeout(record));
    ExpectBoxes({});
}

TEST_F(VolumeFilesTest, ExistingFilesAreNotTouched) {
    const VolumeRecord record = Record();
    raw_.Write(Bytes(3));
    ASSERT_TRUE(BuildVolumeFiles(record, KeyOf(L"a"))); // says nothing about the volume file
    EXPECT_EQ(raw_.Read(), Bytes(3));
    const Bytes keyFile = key_.Read();
    EXPECT_FALSE(BuildVolumeFiles(record, KeyOf(L"a")));
    EXPECT_EQ(key_.Read(), keyFile);
    ExpectBoxes({{L"Cannot create file ", ERROR_FILE_EXISTS}});
}

TEST_F(VolumeFilesTest, MissingFilesAreQuiet) {
    VolumeRecord record = Record();
    record.Timeout = 5;
    record.Flags = 1;
    ReadVolumeInfo(record);
    EXPECT_EQ(record.Size, 0U);
    EXPECT_EQ(record.Cipher, CipherId::None);
    EXPECT_TRUE(FieldText(record.KeyPath).empty());
    EXPECT_EQ(record.Timeout, 5U);
    EXPECT_EQ(record.Flags, 1);
    EXPECT_FALSE(RemoveVolumeFiles(record));
    ExpectBoxes({});
}

TEST_F(VolumeFilesTest, TheKeyFileGoesEvenWhenTheVolumeFileIsGone) {
    key_.Write(Bytes(1));
    EXPECT_TRUE(RemoveVolumeFiles(Record()));
    EXPECT_FALSE(key_.Exists());
    ExpectBoxes({});
}

TEST_F(VolumeFilesTest, AMountedVolumeKeepsItsSize) {
    VolumeRecord record = Record();
    ASSERT_TRUE(BuildVolumeFiles(record, KeyOf(L"a")));
    const UniqueFile driver(
        CreateFileW(record.Path, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    ASSERT_TRUE(driver);
    record.Size = 0;
    ReadVolumeInfo(record);
    EXPECT_EQ(record.Size, kDefaultVolumeSize);
}

TEST_F(VolumeFilesTest, DamagedKeyFiles) {
    const Bytes whole = BuildKeyFile(6, 1, 0, Bytes(152));
    for (const std::size_t size : {0U, 15U, 16U, 31U, 32U, 55U, 56U, 63U, 64U, 71U, 72U, 223U, 224U, 759U}) {
        SCOPED_TRACE(size);
        const Bytes content(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        key_.Write(content);
        VolumeRecord record = Record(CipherId::Twofish);
        const bool summary = ReadKeyFileSummary(record);
        EXPECT_EQ(summary, size >= 64);
        if (summary)
            ExpectBoxes({});
        else
            ExpectBoxes({{L"Unknown data format in file ", 0}});
        Bytes payload(152);
        SetLastError(ERROR_GEN_FAILURE); // of some call long ago: must not appear
        const bool read = ReadChunk(key_.Path(), KeyBlockHeader(CipherId::Cast128), payload);
        EXPECT_EQ(read, size >= 224);
        if (read)
            ExpectBoxes({});
        else
            ExpectBoxes({{L"Cannot read from file ", 0}});
        EXPECT_EQ(key_.Read(), content);
        ExpectKeyFileClosed();
    }
}

TEST_F(VolumeFilesTest, ChunksThatAreNotThere) {
    key_.Write(BuildKeyFile(10, 1, 0, Bytes(152)));
    Bytes payload(152);
    EXPECT_FALSE(ReadChunk(key_.Path(), KeyBlockHeader(CipherId::Cast128), payload));
    EXPECT_FALSE(RewriteChunk(key_.Path(), KeyBlockHeader(CipherId::Cast128), payload));
    ExpectBoxes({{L"Cannot read from file ", 0}, {L"Cannot read from file ", 0}});
    ExpectKeyFileClosed();
}

TEST_F(VolumeFilesTest, FilesThatCannotBeOpened) {
    Bytes payload(152);
    EXPECT_FALSE(ReadChunk(key_.Path(), KeyBlockHeader(CipherId::Cast128), payload));
    ExpectBoxes({{L"Cannot open file ", ERROR_FILE_NOT_FOUND}});

    std::filesystem::create_directory(key_.Location());
    EXPECT_FALSE(ReadChunk(key_.Path(), KeyBlockHeader(CipherId::Cast128), payload));
    ExpectBoxes({{L"Cannot open file ", ERROR_ACCESS_DENIED}});
    VolumeRecord record = Record();
    EXPECT_FALSE(ReadKeyFileSummary(record)); // silently a volume without a key file
    EXPECT_TRUE(FieldText(record.KeyPath).empty());
    ExpectBoxes({});
    std::filesystem::remove(key_.Location());

    const Bytes content = BuildKeyFile(6, 1, 0, Bytes(152));
    key_.Write(content);
    const UniqueFile holder(
        CreateFileW(key_.Path(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    EXPECT_TRUE(ReadChunk(key_.Path(), KeyBlockHeader(CipherId::Cast128), payload));
    EXPECT_FALSE(RewriteChunk(key_.Path(), KeyBlockHeader(CipherId::Cast128), payload));
    ExpectBoxes({{L"Cannot open file ", ERROR_SHARING_VIOLATION}});
    EXPECT_EQ(key_.Read(), content);
}

TEST_F(VolumeFilesTest, ReadOnlyFiles) {
    const Bytes content = BuildKeyFile(6, 1, 0, Bytes(152));
    key_.Write(content);
    SetFileAttributesW(key_.Path(), FILE_ATTRIBUTE_READONLY);
    if (UniqueFile(CreateFileW(key_.Path(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr)))
        GTEST_SKIP() << "this user may write to read-only files";
    Bytes payload(152);
    EXPECT_TRUE(ReadChunk(key_.Path(), KeyBlockHeader(CipherId::Cast128), payload));
    EXPECT_FALSE(RewriteChunk(key_.Path(), KeyBlockHeader(CipherId::Cast128), payload));
    ExpectBoxes({{L"Cannot open file ", ERROR_ACCESS_DENIED}});
    EXPECT_EQ(key_.Read(), content);
}

TEST_F(VolumeFilesTest, TheTimeoutIsRewrittenAroundTheOtherOptions) {
    const Bytes block(152, std::byte{0x3C});
    key_.Write(BuildKeyFile(6, 1, 0xABCDEF02, block));
    VolumeRecord record = Record();
    record.Timeout = 0x1122334455667788;
    record.Flags = 0xFF;
    EXPECT_TRUE(UpdateTimeout(record));
    EXPECT_EQ(ToHex(key_.Read()), ToHex(BuildKeyFile(6, 0x1122334455667788, 0xABCDEF03, block)));
    record.Flags = 0xFE;
    record.Timeout = 0;
    EXPECT_TRUE(UpdateTimeout(record));
    EXPECT_EQ(ToHex(key_.Read()), ToHex(BuildKeyFile(6, 0, 0xABCDEF02, block)));
    ExpectBoxes({});
}

TEST_F(VolumeFilesTest, UpdatingTheTimeoutOfADamagedFile) {
    EXPECT_FALSE(UpdateTimeout(Record())); // both the reading and the writing are tried and reported
    ExpectBoxes({{L"Cannot open file ", ERROR_FILE_NOT_FOUND}, {L"Cannot open file ", ERROR_FILE_NOT_FOUND}});

    // A file cut within its settings cannot be read, but is completed by the writing.
    const Bytes whole = test::KeyFileBuilder().Header(0, 0, 16).Settings(kDefaultTimeout, 0).Get();
    key_.Write(std::span(whole).first(40));
    EXPECT_TRUE(UpdateTimeout(Record()));
    ExpectBoxes({{L"Cannot read from file ", 0}});
    EXPECT_EQ(ToHex(key_.Read()), ToHex(whole));
}

TEST_F(VolumeFilesTest, PathsOfFullLengthAreShownWithinTheBox) {
    const std::wstring path = L"C:\\" + std::wstring(256, L'x');
    Bytes payload(152);
    EXPECT_FALSE(ReadChunk(path.c_str(), KeyBlockHeader(CipherId::Cast128), payload));
    std::vector<SeenBox> boxes = watcher_.Take();
    ASSERT_EQ(boxes.size(), 1U);
    EXPECT_EQ(boxes[0].text, (L"Cannot open file " + path).substr(0, 259));
    // A field without its terminating zero is cut, not run over.
    VolumeRecord record{};
    record.Cipher = CipherId::Cast128;
    for (wchar_t& unit : record.KeyPath)
        unit = L'y';
    EXPECT_FALSE(UpdateTimeout(record));
    EXPECT_EQ(watcher_.Take().size(), 2U);
}

TEST_F(VolumeFilesTest, PasswordsOpenAndChange) {
    for (const CipherId cipher : {CipherId::Cast128, CipherId::Twofish}) {
        VolumeRecord record = Record(cipher);
        ASSERT_TRUE(BuildVolumeFiles(record, KeyOf(L"old")));
        PasswordDigest key = KeyOf(L"old");
        ASSERT_TRUE(UnlockVolume(record, key));
        EXPECT_EQ(key, PasswordDigest{});
        const DataKey dataKey = record.Key;
        EXPECT_NE(dataKey, DataKey{});

        const Bytes before = key_.Read();
        record.Key = {};
        key = KeyOf(L"Old");
        EXPECT_FALSE(UnlockVolume(record, key));
        EXPECT_EQ(key, PasswordDigest{});
        EXPECT_EQ(record.Key, DataKey{});
        EXPECT_EQ(key_.Read(), before);

        KeyBlock block;
        key = KeyOf(L"old");
        ASSERT_TRUE(OpenVolumeKey(record, key, block));
        key = KeyOf(L"new");
        EXPECT_TRUE(StoreVolumeKey(record, key, block));
        EXPECT_EQ(key, PasswordDigest{});
        EXPECT_EQ(ToHex(std::as_bytes(std::span(&block, 1))), std::string(304, '0'));
        key = KeyOf(L"old");
        EXPECT_FALSE(UnlockVolume(record, key));
        key = KeyOf(L"new");
        ASSERT_TRUE(UnlockVolume(record, key));
        EXPECT_EQ(record.Key, dataKey);
        RemoveVolumeFiles(record);
    }
    ExpectBoxes({});
}

TEST_F(VolumeFilesTest, AMissingKeyBlockIsReportedAndDoesNotOpen) {
    VolumeRecord record = Record();
    PasswordDigest key = KeyOf(L"old");
    EXPECT_FALSE(UnlockVolume(record, key));
    ExpectBoxes({{L"Cannot open file ", ERROR_FILE_NOT_FOUND}});
    EXPECT_EQ(key, PasswordDigest{});
}

TEST_F(VolumeFilesTest, HandlesAreClosedOnEveryPath) {
    key_.Write(BuildKeyFile(6, 1, 0, Bytes(152)));
    VolumeRecord record = Record();
    Bytes payload(152);
    DWORD before = 0;
    DWORD after = 0;
    for (int i = 0; i < 200; ++i) {
        if (i == 20) // whatever the first boxes load is there by now
            GetProcessHandleCount(GetCurrentProcess(), &before);
        ReadVolumeInfo(record);
        UpdateTimeout(record);
        static_cast<void>(ReadKeyFileChunk(key_.Path(), KeyBlockHeader(CipherId::Twofish), payload));
        static_cast<void>(CreateKeyFile(key_.Path(), record, PasswordDigest{}));
    }
    GetProcessHandleCount(GetCurrentProcess(), &after);
    EXPECT_LE(after, before);
}

} // namespace
} // namespace quilla
