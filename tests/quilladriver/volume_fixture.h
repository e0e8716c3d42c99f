#pragma once

#include "platform/file.h"
#include "quilladriver/volume_device.h"
#include "tests/quilladriver/test_sectors.h"
#include "tests/support/scratch_file.h"

#include <atomic>
#include <gtest/gtest.h>

namespace quilla::test {

/// A clock that moves by one at each look.
inline std::uint64_t Ticks() {
    static std::atomic<std::uint64_t> ticks{1000};
    return ++ticks;
}

/// A test with a data file of its own.
class VolumeTest : public testing::Test {
  protected:
    /// Makes the file anew, sparse.
    void CreateVolume(std::uint64_t size) const {
        std::filesystem::remove(file_.Location());
        const File file =
            File::Open(file_.Path(), FileAccess::Write, FileSharing::None, FileCreation::CreateNew);
        ASSERT_TRUE(file.IsOpen() && file.SetSize(size));
    }

    [[nodiscard]] File OpenVolume() const {
        return File::Open(file_.Path(), FileAccess::ReadWrite, FileSharing::None, FileCreation::OpenExisting);
    }

    /// What the data file holds, while nothing has it open.
    [[nodiscard]] SectorBytes RawBytes(std::uint64_t offset, std::size_t size) const {
        const File file =
            File::Open(file_.Path(), FileAccess::Read, FileSharing::Read, FileCreation::OpenExisting);
        SectorBytes bytes(size);
        EXPECT_EQ(file.ReadAt(offset, bytes).bytes, size);
        return bytes;
    }

  private:
    ScratchFile file_{".raw"};
};

} // namespace quilla::test
