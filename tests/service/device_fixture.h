#pragma once

#include "desktop/device_manager.h"
#include "service/driver_control.h"
#include "tests/support/deadline.h"
#include "tests/support/export_address.h"
#include "tests/support/temporary_folder.h"

#include <deque>
#include <gtest/gtest.h>
#include <string>

namespace quilla::test {

/// Volumes without a key file on the real driver; what a test leaves mounted is dismounted after it.
class DeviceTest : public testing::Test {
  protected:
    void TearDown() override {
        for (VolumeRecord& record : volumes_)
            if (record.IsMounted())
                Unload(record);
    }

    StopReport Unload(VolumeRecord& record) {
        const StopReport report = DriverControl::DetachDriver(record);
        driver_.UnloadDriver(record);
        return report;
    }

    /// A record of a new volume file; it keeps its address until the test ends.
    VolumeRecord& MakeVolume(const std::wstring& name, std::uint64_t size = 64 * 1024,
                             CipherId cipher = CipherId::None) {
        VolumeRecord& record = volumes_.emplace_back();
        CopyText(record.Path, folder_.MakeFile(name, size));
        record.Size = size;
        record.Cipher = cipher;
        record.Key.fill(std::byte{0x11});
        return record;
    }

    const Deadline deadline_{200'000}; ///< an error box that no test expects waits for ever
    TemporaryFolder folder_;
    DriverControl driver_;
    std::deque<VolumeRecord> volumes_;
};

} // namespace quilla::test
