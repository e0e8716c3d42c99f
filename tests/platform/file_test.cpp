// Positional file access: what the key file walk and the driver rely on.

#include "platform/file.h"

#include "tests/support/scratch_file.h"

#include <array>
#include <gtest/gtest.h>

namespace quilla {
namespace {

TEST(FileTest, TransfersBeyondFourGigabytesAndStopsAtTheEnd) {
    const test::ScratchFile scratch;
    constexpr std::uint64_t kSize = 6ULL << 30;
    const File file =
        File::Open(scratch.Path(), FileAccess::ReadWrite, FileSharing::None, FileCreation::CreateNew);
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

TEST(FileTest, CreationAndSharingRules) {
    const test::ScratchFile scratch;
    const PathUnit* const path = scratch.Path();
    EXPECT_FALSE(File::Open(path, FileAccess::Read, FileSharing::Read, FileCreation::OpenExisting).IsOpen());
    File file = File::Open(path, FileAccess::Write, FileSharing::None, FileCreation::CreateNew);
    ASSERT_TRUE(file.IsOpen());
    EXPECT_FALSE(File::Open(path, FileAccess::Write, FileSharing::None, FileCreation::CreateNew).IsOpen());
    EXPECT_FALSE(File::Open(path, FileAccess::Read, FileSharing::Read, FileCreation::OpenExisting).IsOpen());
    file.Close();
    const File one = File::Open(path, FileAccess::Read, FileSharing::Read, FileCreation::OpenExisting);
    const File two = File::Open(path, FileAccess::Read, FileSharing::Read, FileCreation::OpenExisting);
    EXPECT_TRUE(one.IsOpen());
    EXPECT_TRUE(two.IsOpen());
}

} // namespace
} // namespace quilla
