// What the key file walk and the driver rely on when they open a file.

#include "platform/file.h"

#include "tests/support/scratch_file.h"

#include <gtest/gtest.h>

namespace quilla {
namespace {

TEST(FileTest, CreationAndSharingRules) {
    const test::ScratchFile scratch;
    const auto open = [&scratch](FileAccess access, FileSharing sharing, FileCreation creation) {
        return File::Open(scratch.Path(), access, sharing, creation);
    };
    EXPECT_FALSE(open(FileAccess::Read, FileSharing::Read, FileCreation::OpenExisting).IsOpen());
    File file = open(FileAccess::Write, FileSharing::None, FileCreation::CreateNew);
    ASSERT_TRUE(file.IsOpen());
    EXPECT_FALSE(open(FileAccess::Write, FileSharing::None, FileCreation::CreateNew).IsOpen());
    EXPECT_FALSE(open(FileAccess::Read, FileSharing::Read, FileCreation::OpenExisting).IsOpen());
    file.Close();
    const File one = open(FileAccess::Read, FileSharing::Read, FileCreation::OpenExisting);
    const File two = open(FileAccess::Read, FileSharing::Read, FileCreation::OpenExisting);
    EXPECT_TRUE(one.IsOpen() && two.IsOpen());
    EXPECT_FALSE(open(FileAccess::ReadWrite, FileSharing::None, FileCreation::OpenExisting).IsOpen());
}

} // namespace
} // namespace quilla
