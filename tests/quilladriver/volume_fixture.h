#pragma once

#include "platform/file.h"
#include "quilladriver/volume_device.h"
#include "tests/quilladriver/test_sectors.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <string>
#ifdef _WIN32
#include <process.h>
#else
#include <unistd.h>
#endif

namespace quilla::test {

/// A data file in the working folder for this process alone: tests run side by side.
#ifdef _WIN32
inline const PathUnit* VolumePath() {
    static const std::wstring path = L"quilladriver_test." + std::to_wstring(_getpid()) + L".raw";
    return path.c_str();
}
inline void RemoveVolume() {
    _wremove(VolumePath());
}
#else
inline const PathUnit* VolumePath() {
    static const std::string path = "quilladriver_test." + std::to_string(getpid()) + ".raw";
    return path.c_str();
}
inline void RemoveVolume() {
    std::remove(VolumePath());
}
#endif

/// A clock that moves by one at each look.
inline std::uint64_t Ticks() {
    static std::atomic<std::uint64_t> ticks{1000};
    return ++ticks;
}

/// A test with a data file of its own, sparse, in the working folder.
class VolumeTest : public testing::Test {
  protected:
    VolumeTest() { RemoveVolume(); }
    ~VolumeTest() override { RemoveVolume(); }

    static void CreateVolume(std::uint64_t size) {
        const File file =
            File::Open(VolumePath(), FileAccess::Write, FileSharing::None, FileCreation::CreateNew);
        ASSERT_TRUE(file.IsOpen() && file.SetSize(size));
    }

    static File OpenVolume() {
        return File::Open(VolumePath(), FileAccess::ReadWrite, FileSharing::None, FileCreation::OpenExisting);
    }

    /// What the data file holds, while nothing has it open.
    static SectorBytes RawBytes(std::uint64_t offset, std::size_t size) {
        const File file =
            File::Open(VolumePath(), FileAccess::Read, FileSharing::Read, FileCreation::OpenExisting);
        SectorBytes bytes(size);
        EXPECT_EQ(file.ReadAt(offset, bytes).bytes, size);
        return bytes;
    }
};

} // namespace quilla::test
