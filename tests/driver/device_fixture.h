#pragma once

#include "driver/driver_control.h"
#include "platform/desktop/device_manager.h"
#include "tests/support/temporary_folder.h"

#include <deque>
#include <gtest/gtest.h>
#include <optional>
#include <string>

namespace quilla::test {

/// Path of the file that tells the user's programs where a device is exported.
inline std::wstring UriFile(unsigned index) {
    return std::wstring(_wgetenv(L"LOCALAPPDATA")) + L"\\Quilla Tarn\\SEC" + std::to_wstring(index) + L".uri";
}

/// Content of a small file; nothing if there is none.
inline std::optional<std::string> ReadSmallFile(const std::wstring& path) {
    const HANDLE file =
        CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return std::nullopt;
    char content[4096];
    DWORD size = 0;
    ReadFile(file, content, sizeof(content), &size, nullptr);
    CloseHandle(file);
    return std::string(content, size);
}

/// Port and export name of "nbd://127.0.0.1:PORT/NAME\n".
struct Address {
    explicit Address(const std::string& uri) {
        const std::size_t slash = uri.rfind('/');
        port = static_cast<std::uint16_t>(std::stoi(uri.substr(uri.rfind(':') + 1)));
        name = uri.substr(slash + 1, uri.find('\n') - slash - 1);
    }
    std::uint16_t port;
    std::string name;
};

/// Volumes without a key file on the real driver; what a test leaves mounted is dismounted after it.
class DeviceTest : public testing::Test {
  protected:
    void TearDown() override {
        for (VolumeRecord& record : volumes_)
            if (record.IsMounted())
                driver_.UnloadDriver(record);
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

    TemporaryFolder folder_;
    DriverControl driver_;
    std::deque<VolumeRecord> volumes_;
};

} // namespace quilla::test
