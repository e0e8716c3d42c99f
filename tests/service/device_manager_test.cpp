// What the device manager lets in and what it tells the rest of the system.

#include "desktop/device_manager.h"

#include "desktop/ce_services.h"
#include "platform/disk_codes.h"
#include "tests/service/device_fixture.h"
#include "tests/support/message_box_watcher.h"
#include "tests/support/message_window.h"
#include "tests/support/program.h"

#include <array>
#include <cstring>
#include <thread>
#include <vector>

namespace quilla {
namespace {

using test::DeviceTest;

std::wstring BesideProgram(const wchar_t* file) {
    wchar_t path[MAX_PATH];
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    return std::wstring(path).substr(0, std::wstring(path).rfind(L'\\') + 1) + file;
}

std::uint32_t Register(VolumeRecord& record, const std::wstring& library, unsigned index = 0,
                       const wchar_t* prefix = L"SEC") {
    return GetDeviceManager().Register(prefix, index, library.c_str(),
                                       reinterpret_cast<std::uintptr_t>(&record));
}

TEST_F(DeviceTest, LoadsOnlyAProperDriverFromTheProgramsFolder) {
    VolumeRecord& record = MakeVolume(L"a.raw");
    const std::wstring driver = BesideProgram(L"QuillaDriver.dll");
    const std::wstring elsewhere = folder_.File(L"QuillaDriver.dll");
    ASSERT_TRUE(CopyFileW(driver.c_str(), elsewhere.c_str(), TRUE));
    EXPECT_EQ(Register(record, elsewhere), 0U);
    EXPECT_EQ(Register(record, L"QuillaDriver.dll"), 0U);
    EXPECT_EQ(Register(record, BesideProgram(L"..\\driver\\QuillaDriver.dll")), 0U);
    EXPECT_EQ(Register(record, BesideProgram(L"")), 0U);
    EXPECT_EQ(Register(record, L""), 0U);
    EXPECT_EQ(Register(record, BesideProgram(L"Missing.dll")), 0U);
    EXPECT_EQ(Register(record, driver, 0, L"DSK"), 0U);
    EXPECT_EQ(Register(record, driver, 10), 0U);
    EXPECT_EQ(Register(record, driver, 0xFFFFFFFF), 0U);
    for (const wchar_t* const faulty :
         {L"FaultyDriver1.dll", L"FaultyDriver2.dll", L"FaultyDriver3.dll", L"FaultyDriver4.dll"}) {
        ASSERT_NE(GetFileAttributesW(BesideProgram(faulty).c_str()), INVALID_FILE_ATTRIBUTES);
        EXPECT_EQ(Register(record, BesideProgram(faulty)), 0U) << faulty;
        EXPECT_EQ(GetModuleHandleW(faulty), nullptr) << "left loaded";
    }

    const std::uint32_t handle = Register(record, driver, 7);
    EXPECT_NE(handle, 0U);
    VolumeRecord& other = MakeVolume(L"b.raw");
    EXPECT_EQ(Register(other, driver, 7), 0U) << "taken";
    EXPECT_FALSE(GetDeviceManager().Deregister(handle + 1));
    EXPECT_FALSE(GetDeviceManager().Deregister(0));
    EXPECT_TRUE(GetDeviceManager().Deregister(handle));
    EXPECT_FALSE(GetDeviceManager().Deregister(handle));
}

TEST_F(DeviceTest, OpensDevicesByNameAndFilesAsEver) {
    VolumeRecord& record = MakeVolume(L"a.raw");
    const auto open = [](const wchar_t* name) {
        return ce::CreateFileW(name, 0, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    };
    EXPECT_EQ(open(L"SEC3:"), INVALID_HANDLE_VALUE);
    const std::uint32_t handle = Register(record, BesideProgram(L"QuillaDriver.dll"), 3);
    const HANDLE device = open(L"sec3:");
    ASSERT_NE(device, INVALID_HANDLE_VALUE);
    DWORD returned = 0;
    std::uint64_t size = 0;
    EXPECT_TRUE(ce::DeviceIoControl(device, 0x0007405C, nullptr, 0, &size, sizeof(size), &returned, nullptr));
    EXPECT_EQ(size, 64U * 1024);

    const HANDLE stale = open(L"SEC3:");
    EXPECT_TRUE(ce::CloseHandle(device));
    EXPECT_FALSE(ce::CloseHandle(device));
    EXPECT_TRUE(GetDeviceManager().Deregister(handle));
    EXPECT_FALSE(ce::DeviceIoControl(stale, 0x0007405C, nullptr, 0, &size, sizeof(size), &returned, nullptr));
    EXPECT_EQ(open(L"SEC:"), INVALID_HANDLE_VALUE);
    EXPECT_FALSE(ce::DeviceIoControl(INVALID_HANDLE_VALUE, 1, nullptr, 0, nullptr, 0, &returned, nullptr));
    const HANDLE file = open(record.Path);
    EXPECT_NE(file, INVALID_HANDLE_VALUE);
    EXPECT_TRUE(ce::CloseHandle(file));
}

TEST_F(DeviceTest, TheDriverServesBeyondFourGiBAndTellsWhatItRefuses) {
    constexpr std::uint64_t kSize = 6ULL << 30;
    VolumeRecord& record = MakeVolume(L"a.raw", kSize, CipherId::Twofish);
    const std::wstring path = BesideProgram(L"QuillaDriver.dll");
    const UniqueLibrary library(LoadLibraryW(path.c_str()));
    for (const char* const name :
         {"SEC_Read", "SEC_Write", "SEC_Seek", "SEC_PowerUp", "SEC_PowerDown", "QuillaKernelName"})
        EXPECT_NE(GetProcAddress(library.Get(), name), nullptr) << name;
    EXPECT_EQ(GetDeviceManager().Register(L"SEC", 3, path.c_str(), 0), 0U);
    const std::uint32_t handle = Register(record, path, 3);
    ASSERT_NE(handle, 0U);

    const HANDLE device = ce::CreateFileW(L"SEC3:", 0, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    DWORD returned = 0;
    const auto control = [&](DWORD code, void* in, DWORD inSize, void* out = nullptr, DWORD outSize = 0) {
        SetLastError(ERROR_SUCCESS);
        return ce::DeviceIoControl(device, code, in, inSize, out, outSize, &returned, nullptr)
                   ? DWORD{ERROR_SUCCESS}
                   : GetLastError();
    };
    DiskInfo info{};
    EXPECT_EQ(control(IOCTL_DISK_GETINFO, nullptr, 0, &info, sizeof(info)), DWORD{ERROR_SUCCESS});
    EXPECT_EQ(returned, sizeof(info));
    EXPECT_EQ(info.totalSectors, kSize / kSectorSize);
    VolumeTransfer beyond{
        .offset = kSize, .length = 512, .address = nullptr, .direction = TransferDirection::WriteZeroes};
    EXPECT_EQ(control(IOCTL_VOLUME_TRANSFER, &beyond, sizeof(beyond)), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(control(IOCTL_VOLUME_QUERY, nullptr, sizeof(record)), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_EQ(control(0x4711, nullptr, 0), DWORD{ERROR_NOT_SUPPORTED});
    EXPECT_TRUE(ce::CloseHandle(device));
    EXPECT_TRUE(GetDeviceManager().Deregister(handle));
}

TEST_F(DeviceTest, AnnouncesDevicesToAllWindows) {
    struct Notice {
        WPARAM event;
        std::uint32_t head[3]; ///< size, type, reserved
        std::wstring name;
    };
    std::vector<Notice> notices;
    const test::MessageWindow window([&](UINT message, WPARAM wParam,
                                         LPARAM lParam) -> std::optional<LRESULT> {
        if (message == WM_DEVICECHANGE && lParam != 0) {
            Notice notice{.event = wParam, .head = {}, .name = reinterpret_cast<const wchar_t*>(lParam + 12)};
            std::memcpy(notice.head, reinterpret_cast<const void*>(lParam), sizeof(notice.head));
            notices.push_back(notice);
        }
        return std::nullopt;
    });
    VolumeRecord& record = MakeVolume(L"a.raw");
    driver_.LoadDriver(record);
    Unload(record);
    DeleteFileW(record.Path);
    const test::MessageBoxWatcher boxes; // the driver cannot be loaded
    driver_.LoadDriver(record);
    ASSERT_EQ(notices.size(), 3U);
    EXPECT_EQ(notices[0].event, 0x8000U);
    EXPECT_EQ(notices[1].event, 0x8004U);
    EXPECT_EQ(notices[2].event, 0x8000U) << "announced all the same";
    for (const Notice& notice : notices) {
        EXPECT_EQ(std::to_array(notice.head), (std::array<std::uint32_t, 3>{26, 3, 0}));
        EXPECT_EQ(notice.name, L"SEC0:");
    }
}

TEST_F(DeviceTest, StartsTheUsersHooks) {
    constexpr wchar_t kKey[] = L"Software\\Orvane\\Quilla\\DeviceChange";
    const std::wstring log = folder_.File(L"hook.txt");
    const std::wstring hook = L"cmd.exe /c echo>>" + log;
    HKEY key = nullptr;
    ASSERT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, kKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr),
              0);
    RegSetValueExW(key, L"broken", 0, REG_SZ, reinterpret_cast<const BYTE*>(L"Z:\\no such program"), 40);
    RegSetValueExW(key, L"number", 0, REG_DWORD, reinterpret_cast<const BYTE*>(L"12"), 4);
    RegSetValueExW(key, L"the hook", 0, REG_SZ, reinterpret_cast<const BYTE*>(hook.c_str()),
                   static_cast<DWORD>(2 * hook.size())); // without its terminating zero
    RegCloseKey(key);
    std::string written;
    const auto awaitLine = [&](const char* line) {
        return test::WaitUntil([&] {
            written = test::ReadSmallFile(log).value_or("");
            return written.find(line) != std::string::npos;
        });
    };
    VolumeRecord& missing = MakeVolume(L"gone.raw");
    DeleteFileW(missing.Path);
    test::MessageBoxWatcher boxes;
    driver_.LoadDriver(missing); // no hook runs for a device that is none
    VolumeRecord& record = MakeVolume(L"a.raw");
    driver_.LoadDriver(record);
    EXPECT_TRUE(awaitLine("/ADD SEC0:")) << written;
    EXPECT_EQ(written.find("/REMOVE"), std::string::npos) << written;
    Unload(record);
    EXPECT_TRUE(awaitLine("/REMOVE SEC0:")) << written;
    RegDeleteKeyW(HKEY_CURRENT_USER, kKey);
    EXPECT_EQ(written.find("/ADD"), written.rfind("/ADD")) << written;
    EXPECT_FALSE(ce::CeEventHasOccurred(3, L"/ADD SEC4:")) << "no such event";
}

} // namespace
} // namespace quilla
