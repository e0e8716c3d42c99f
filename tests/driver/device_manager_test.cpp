// What the device manager lets in and what it tells the rest of the system.

#include "platform/desktop/device_manager.h"

#include "driver/device_change.h"
#include "platform/desktop/ce_services.h"
#include "tests/driver/device_fixture.h"

#include <aclapi.h>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <sddl.h>
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
    EXPECT_EQ(GetLastError(), DWORD{ERROR_DEV_NOT_EXIST});
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

/// Everybody whom a file's access list lets in.
std::vector<std::wstring> AllowedBy(const std::wstring& path) {
    PACL list = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    EXPECT_EQ(GetNamedSecurityInfoW(path.c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                                    &list, nullptr, &descriptor),
              DWORD{ERROR_SUCCESS});
    std::vector<std::wstring> allowed;
    for (WORD i = 0; list != nullptr && i < list->AceCount; ++i) {
        void* entry = nullptr;
        wchar_t* text = nullptr;
        GetAce(list, i, &entry);
        const auto* const ace = static_cast<const ACCESS_ALLOWED_ACE*>(entry);
        if (ace->Header.AceType != ACCESS_ALLOWED_ACE_TYPE || ace->Mask == 0)
            continue;
        ConvertSidToStringSidW(const_cast<DWORD*>(&ace->SidStart), &text);
        if (text != std::wstring_view(L"S-1-5-18")) // the system itself, which Wine adds to every list
            allowed.emplace_back(text);
        LocalFree(text);
    }
    LocalFree(descriptor);
    return allowed;
}

TEST_F(DeviceTest, ShowsTheAddressToTheUserOnly) {
    VolumeRecord& record = MakeVolume(L"a.raw");
    const std::uint32_t handle = Register(record, BesideProgram(L"QuillaDriver.dll"));
    const std::wstring folder = test::UriFile(0).substr(0, test::UriFile(0).rfind(L'\\'));
    const std::vector<std::wstring> fileReaders = AllowedBy(test::UriFile(0));
    const std::vector<std::wstring> folderReaders = AllowedBy(folder);
    GetDeviceManager().Deregister(handle);
    ASSERT_EQ(fileReaders.size(), 1U);
    EXPECT_EQ(folderReaders, fileReaders);
    EXPECT_TRUE(fileReaders[0].starts_with(L"S-1-5-21-")) << "one account, not a group";
}

/// A top-level window with a thread of its own that keeps the device notices it gets.
class NoticeWindow {
  public:
    struct Notice {
        WPARAM event;
        std::uint32_t size;
        std::uint32_t type;
        std::uint32_t reserved;
        std::wstring name;
    };

    NoticeWindow() : thread_([this] { Run(); }) {
        std::unique_lock guard(lock_);
        changed_.wait(guard, [this] { return window_ != nullptr; });
    }
    ~NoticeWindow() {
        PostMessageW(window_, WM_CLOSE, 0, 0);
        thread_.join();
    }
    NoticeWindow(const NoticeWindow&) = delete;
    NoticeWindow& operator=(const NoticeWindow&) = delete;

    std::vector<Notice> Take() {
        const std::lock_guard guard(lock_);
        return std::exchange(notices_, {});
    }

  private:
    void Run() {
        const HWND window = CreateWindowExW(0, L"STATIC", L"notices", WS_OVERLAPPED, 0, 0, 0, 0, nullptr,
                                            nullptr, nullptr, nullptr);
        SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
        SetWindowLongPtrW(window, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(Procedure));
        {
            const std::lock_guard guard(lock_);
            window_ = window;
        }
        changed_.notify_all();
        MSG message;
        while (GetMessageW(&message, nullptr, 0, 0) > 0)
            DispatchMessageW(&message);
    }

    static LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
        auto& self = *reinterpret_cast<NoticeWindow*>(GetWindowLongPtrW(window, GWLP_USERDATA));
        if (message == WM_DEVICECHANGE && lParam != 0) {
            Notice notice{.event = wParam, .size = 0, .type = 0, .reserved = 1, .name = {}};
            std::memcpy(&notice.size, reinterpret_cast<const void*>(lParam), 4);
            std::memcpy(&notice.type, reinterpret_cast<const void*>(lParam + 4), 4);
            std::memcpy(&notice.reserved, reinterpret_cast<const void*>(lParam + 8), 4);
            notice.name = reinterpret_cast<const wchar_t*>(lParam + 12);
            const std::lock_guard guard(self.lock_);
            self.notices_.push_back(notice);
        }
        if (message == WM_CLOSE)
            PostQuitMessage(0);
        return DefWindowProcW(window, message, wParam, lParam);
    }

    std::mutex lock_;
    std::condition_variable changed_;
    HWND window_ = nullptr;
    std::vector<Notice> notices_;
    std::thread thread_;
};

TEST_F(DeviceTest, AnnouncesDevicesToAllWindows) {
    NoticeWindow window;
    VolumeRecord& record = MakeVolume(L"a.raw");
    driver_.LoadDriver(record);
    driver_.UnloadDriver(record);
    const auto notices = window.Take();
    ASSERT_EQ(notices.size(), 2U);
    EXPECT_EQ(notices[0].event, 0x8000U);
    EXPECT_EQ(notices[1].event, 0x8004U);
    for (const auto& notice : notices) {
        EXPECT_EQ(notice.size, 26U);
        EXPECT_EQ(notice.type, 3U);
        EXPECT_EQ(notice.reserved, 0U);
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
    BroadcastDeviceChange(L"SEC4:", 0x8000, L"/ADD");
    std::string written;
    for (int i = 0; i < 300 && written.find(':') == std::string::npos; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        written = test::ReadSmallFile(log).value_or("");
    }
    RegDeleteKeyW(HKEY_CURRENT_USER, kKey);
    EXPECT_NE(written.find("/ADD SEC4:"), std::string::npos) << written;
    EXPECT_FALSE(ce::CeEventHasOccurred(3, L"/ADD SEC4:")) << "no such event";
}

} // namespace
} // namespace quilla
