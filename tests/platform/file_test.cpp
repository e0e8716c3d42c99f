// Positional file access: what the key file walk and the driver rely on.

#include "platform/file.h"

#include <array>
#include <cstdio>
#include <gtest/gtest.h>

namespace quilla {
namespace {

#ifdef _WIN32
constexpr const PathUnit* kPath = L"file_test.tmp";
void RemoveFile() {
    _wremove(kPath);
}
#else
constexpr const PathUnit* kPath = "file_test.tmp";
void RemoveFile() {
    std::remove(kPath);
}
#endif

class FileTest : public testing::Test {
  protected:
    FileTest() { RemoveFile(); }
    ~FileTest() override { RemoveFile(); }
};

TEST_F(FileTest, TransfersBeyondFourGigabytesAndStopsAtTheEnd) {
    constexpr std::uint64_t kSize = 6ULL << 30;
    const File file = File::Open(kPath, FileAccess::ReadWrite, FileSharing::None, FileCreation::CreateNew);
    ASSERT_TRUE(file.IsOpen());
    ASSERT_TRUE(file.SetSize(kSize));
    std::uint64_t size = 0;
    EXPECT_TRUE(file.GetSize(size));
    EXPECT_EQ(size, kSize);

    std::array<std::byte, 16> out{};
    out.fill(std::byte{0x5A});
    EXPECT_EQ(file.WriteAt(kSize - 8, std::span(out).first(8)).bytes, 8U);
    std::array<std::byte, 16> in{};
    const Transfer transfer = file.ReadAt(kSize - 8, in);
    EXPECT_TRUE(transfer.succeeded);
    EXPECT_EQ(transfer.bytes, 8U);
    EXPECT_EQ(in[7], std::byte{0x5A});
    EXPECT_EQ(file.ReadAt(kSize + 100, in).bytes, 0U);
}

TEST_F(FileTest, CreationAndSharingRules) {
    EXPECT_FALSE(File::Open(kPath, FileAccess::Read, FileSharing::Read, FileCreation::OpenExisting).IsOpen());
    File file = File::Open(kPath, FileAccess::Write, FileSharing::None, FileCreation::CreateNew);
    ASSERT_TRUE(file.IsOpen());
    EXPECT_FALSE(File::Open(kPath, FileAccess::Write, FileSharing::None, FileCreation::CreateNew).IsOpen());
    EXPECT_FALSE(File::Open(kPath, FileAccess::Read, FileSharing::Read, FileCreation::OpenExisting).IsOpen());
    file.Close();
    const File one = File::Open(kPath, FileAccess::Read, FileSharing::Read, FileCreation::OpenExisting);
    const File two = File::Open(kPath, FileAccess::Read, FileSharing::Read, FileCreation::OpenExisting);
    EXPECT_TRUE(one.IsOpen());
    EXPECT_TRUE(two.IsOpen());
}

} // namespace
} // namespace quilla
