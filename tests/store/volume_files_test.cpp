// Volume and key files as the user meets them on Windows: what is created, changed and removed, and the text
// of every message box.

#include "store/volume_files.h"
#include "store/volume_password.h"
#include "tests/support/key_file_builder.h"
#include "tests/support/message_box_watcher.h"
#include "tests/support/scratch_file.h"

#include <gtest/gtest.h>

namespace quilla {
namespace {

using test::BuildKeyFile;
using test::Bytes;
using test::SeenBox;
using test::ToHex;

const ChunkHeader kCastBlock = KeyBlockHeader(CipherId::Cast128);

std::wstring SystemText(DWORD error) {
    wchar_t text[260];
    const DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                                        error, 0, text, 260, nullptr);
    return std::wstring(text, length);
}

class VolumeFilesTest : public testing::Test {
  protected:
    VolumeRecord Record() const {
        VolumeRecord record{};
        CopyText(record.Path, raw_.Path());
        CopyText(record.KeyPath, key_.Path());
        record.Cipher = CipherId::Cast128;
        record.Size = kDefaultVolumeSize;
        record.Timeout = kDefaultTimeout;
        return record;
    }

    /// The boxes since the last call must be exactly these: the text before the key file's path, and the
    /// error whose description follows.
    void ExpectBoxes(std::initializer_list<std::pair<const wchar_t*, DWORD>> expected) {
        const std::vector<SeenBox> boxes = watcher_.Take();
        ASSERT_EQ(boxes.size(), expected.size());
        std::size_t index = 0;
        for (const auto& [prefix, error] : expected) {
            const SeenBox& box = boxes[index++];
            EXPECT_EQ(box.text, prefix + std::wstring(key_.Path()) +
                                    (error != 0 ? L"\n" + SystemText(error) : std::wstring()));
            EXPECT_EQ(box.caption, L"Quilla Error");
            EXPECT_TRUE(box.errorIcon);
        }
    }

    test::MessageBoxWatcher watcher_;
    test::ScratchFile raw_{".raw"};
    test::ScratchFile key_{".key"};
};

TEST_F(VolumeFilesTest, AVolumeMayHaveNoKeyFile) {
    VolumeRecord record = Record();
    record.Cipher = CipherId::None;
    record.Size = 5ULL << 30;
    ASSERT_TRUE(BuildVolumeFiles(record, PasswordDigest{}));
    EXPECT_FALSE(key_.Exists());
    record = Record();
    EXPECT_EQ(ReadVolumeInfo(record), KeyFileState::Missing);
    EXPECT_EQ(record.Size, 5ULL << 30);
    EXPECT_EQ(record.Cipher, CipherId::None);
    EXPECT_TRUE(FieldText(record.KeyPath).empty()); // it could not be opened
    EXPECT_TRUE(UpdateTimeout(record));
    ExpectBoxes({});
}

TEST_F(VolumeFilesTest, ExistingFilesAreNotTouched) {
    raw_.Write(Bytes(3));
    ASSERT_TRUE(BuildVolumeFiles(Record(), PasswordDigest{})); // says nothing about the volume file
    EXPECT_EQ(raw_.Read(), Bytes(3));
    const Bytes keyFile = key_.Read();
    EXPECT_FALSE(BuildVolumeFiles(Record(), PasswordDigest{}));
    EXPECT_EQ(key_.Read(), keyFile);
    ExpectBoxes({{L"Cannot create file ", ERROR_FILE_EXISTS}});
}

TEST_F(VolumeFilesTest, DamagedAndBusyKeyFilesAreReported) {
    const Bytes whole = BuildKeyFile(6, 1, 0, Bytes(152));
    VolumeRecord record = Record();
    Bytes payload(152);
    Bytes other = whole;
    other[0] = std::byte{1}; // no key file at all
    for (const Bytes& file : {other, BuildKeyFile(11, 1, 0, Bytes(152)), Bytes(&whole[0], &whole[63])}) {
        key_.Write(file);
        EXPECT_EQ(ReadKeyFileSummary(record), KeyFileState::Unreadable);
        ExpectBoxes({{L"Unknown data format in file ", 0}});
    }
    SetLastError(ERROR_GEN_FAILURE); // of some call long ago: must not appear
    EXPECT_FALSE(ReadChunk(key_.Path(), kCastBlock, payload));
    ExpectBoxes({{L"Cannot read from file ", 0}});
    key_.Write(whole);
    EXPECT_FALSE(RewriteChunk(key_.Path(), KeyBlockHeader(CipherId::Twofish), payload));
    ExpectBoxes({{L"Cannot read from file ", 0}});

    const auto reader =
        File::Open(key_.Path(), FileAccess::Read, FileSharing::Read, FileCreation::OpenExisting);
    EXPECT_TRUE(ReadChunk(key_.Path(), kCastBlock, payload)) << "another reader is no obstacle";
    EXPECT_FALSE(RewriteChunk(key_.Path(), kCastBlock, payload));
    ExpectBoxes({{L"Cannot open file ", ERROR_SHARING_VIOLATION}});
}

TEST_F(VolumeFilesTest, MissingKeyFilesAreReported) {
    VolumeRecord record = Record();
    PasswordDigest key;
    key.fill(std::byte{7});
    EXPECT_FALSE(UnlockVolume(record, key));
    EXPECT_EQ(key, PasswordDigest{}) << "not wiped";
    ExpectBoxes({{L"Cannot open file ", ERROR_FILE_NOT_FOUND}});
    EXPECT_FALSE(UpdateTimeout(record)); // written back even when it could not be read
    ExpectBoxes({{L"Cannot open file ", ERROR_FILE_NOT_FOUND}, {L"Cannot open file ", ERROR_FILE_NOT_FOUND}});
}

TEST_F(VolumeFilesTest, AKeyThatCannotBeTriedIsNoWrongPassword) {
    VolumeRecord record = Record();
    PasswordDigest key{};
    KeyStrength strength{};
    ASSERT_EQ(MakeWrappingKey(key, strength, {.memory = 8192, .passes = 1, .lanes = 1}), KeyFileStatus::Done);
    ASSERT_EQ(CreateKeyFile(key_.Path(), record, key, &strength), KeyFileStatus::Done);
    KeyAttempt attempt;
    key = {};
    EXPECT_TRUE(UnlockVolume(record, key, &attempt));
    EXPECT_TRUE(attempt.strength && attempt.strength->memory == 8192);
    ASSERT_TRUE(UpdateTimeout(record)); // keeps the chunk, as a program does that does not know it
    key = {std::byte{1}};
    record.Key = {};
    EXPECT_FALSE(UnlockVolume(record, key, &attempt));
    EXPECT_EQ(record.Key, DataKey{}) << "of a wrong password";
    EXPECT_FALSE(attempt.IsUntried());
    ExpectBoxes({});

    Bytes file = key_.Read();
    StoreLittle(&file[776 + 36], 65U); // passes
    key_.Write(file);
    EXPECT_FALSE(UnlockVolume(record, key, &attempt));
    EXPECT_TRUE(attempt.IsUntried());
    ExpectBoxes({{L"Unknown data format in file ", 0}});
}

TEST_F(VolumeFilesTest, TheTimeoutIsRewrittenAroundTheOtherOptions) {
    const Bytes block(152, std::byte{0x3C});
    key_.Write(BuildKeyFile(6, 1, 0xABCDEF02, block));
    VolumeRecord record = Record();
    record.Timeout = 0x1122334455667788;
    record.Flags = 0xFF;
    EXPECT_TRUE(UpdateTimeout(record));
    EXPECT_EQ(ToHex(key_.Read()), ToHex(BuildKeyFile(6, 0x1122334455667788, 0xABCDEF03, block)));

    record.Flags = 0;
    EXPECT_TRUE(UpdateTimeout(record));
    EXPECT_EQ(ToHex(key_.Read()), ToHex(BuildKeyFile(6, 0x1122334455667788, 0xABCDEF02, block)));

    // A file cut within its settings is completed by the writing.
    const Bytes whole = BuildKeyFile(0, kDefaultTimeout, 0, {});
    key_.Write(std::span(whole).first(40));
    EXPECT_TRUE(UpdateTimeout(Record()));
    ExpectBoxes({{L"Cannot read from file ", 0}});
    EXPECT_EQ(ToHex(key_.Read()), ToHex(std::span(whole).first(56)));
}

} // namespace
} // namespace quilla
