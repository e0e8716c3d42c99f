// The driver as it is shipped: loaded by name, entered through its exports, on real files.

#include "platform/disk_codes.h"
#include "platform/win32/handle.h"
#include "volume/volume_record.h"

#include <algorithm>
#include <array>
#include <gtest/gtest.h>
#include <iterator>
#include <utility>

namespace quilla {
namespace {

constexpr wchar_t kPath[] = L"driver_dll_test.raw";

class DriverDllTest : public testing::Test {
  protected:
    DriverDllTest() {
        library_.Reset(LoadLibraryA(QUILLA_DRIVER_PATH));
        EXPECT_TRUE(library_) << GetLastError();
        Resolve(init_, "SEC_Init");
        Resolve(deinit_, "SEC_Deinit");
        Resolve(open_, "SEC_Open");
        Resolve(close_, "SEC_Close");
        Resolve(read_, "SEC_Read");
        Resolve(control_, "SEC_IOControl");
        for (const char* name : {"SEC_Write", "SEC_Seek", "SEC_PowerUp", "SEC_PowerDown", "QuillaKernelName"})
            EXPECT_NE(GetProcAddress(library_.Get(), name), nullptr) << name;
        DeleteFileW(kPath);
        CopyText(record_.Path, kPath);
    }
    ~DriverDllTest() override { DeleteFileW(kPath); }

    static void CreateVolume(std::uint64_t size) {
        const UniqueFile file(CreateFileW(kPath, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
        LARGE_INTEGER end{};
        end.QuadPart = static_cast<LONGLONG>(size);
        ASSERT_TRUE(SetFilePointerEx(file.Get(), end, nullptr, FILE_BEGIN) && SetEndOfFile(file.Get()));
    }

    std::uintptr_t Init() { return init_(reinterpret_cast<std::uintptr_t>(&record_)); }

    template <typename Record>
    BOOL Control(std::uintptr_t device, DWORD code, Record& in) {
        return control_(device, code, reinterpret_cast<BYTE*>(&in), sizeof(in), nullptr, 0, nullptr);
    }

    VolumeRecord record_{};
    UniqueLibrary library_;
    std::uintptr_t (*init_)(std::uintptr_t) = nullptr;
    BOOL (*deinit_)(std::uintptr_t) = nullptr;
    std::uintptr_t (*open_)(std::uintptr_t, DWORD, DWORD) = nullptr;
    BOOL (*close_)(std::uintptr_t) = nullptr;
    DWORD (*read_)(std::uintptr_t, void*, DWORD) = nullptr;
    BOOL (*control_)(std::uintptr_t, DWORD, BYTE*, DWORD, BYTE*, DWORD, DWORD*) = nullptr;

  private:
    template <typename Function>
    void Resolve(Function& function, const char* name) {
        function = reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(library_.Get(), name)));
        EXPECT_NE(function, nullptr) << name;
    }
};

TEST_F(DriverDllTest, RefusesWhatItCannotServe) {
    EXPECT_EQ(init_(0), 0U);
    CreateVolume(1 << 20);
    {
        const UniqueFile user(CreateFileW(kPath, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                          OPEN_EXISTING, 0, nullptr));
        EXPECT_EQ(Init(), 0U) << "in use";
    }
    PathText full;
    std::fill(std::begin(full), std::end(full), L'x');
    std::swap(full, record_.Path);
    EXPECT_EQ(Init(), 0U) << "no end to the path";
    std::swap(full, record_.Path);
    const std::uintptr_t device = Init();
    EXPECT_NE(device, 0U);
    EXPECT_TRUE(deinit_(device));
}

TEST_F(DriverDllTest, AnswersControlCodesAndTellsErrors) {
    constexpr std::uint64_t kSize = 6ULL << 30;
    CreateVolume(kSize);
    record_.Cipher = CipherId::Twofish;
    const std::uintptr_t device = Init();
    ASSERT_NE(device, 0U);
    EXPECT_NE(record_.ActivityTime, 0U);
    const std::uintptr_t opened = open_(device, 0, 0);
    DiskInfo info{};
    DWORD returned = 0;
    EXPECT_TRUE(control_(opened, kIoctlDiskGetInfo, nullptr, 0, reinterpret_cast<BYTE*>(&info), sizeof(info),
                         &returned));
    EXPECT_EQ(returned, sizeof(info));
    EXPECT_EQ(info.totalSectors, kSize / kSectorSize);
    EXPECT_TRUE(Control(opened, kIoctlVolumeQuery, record_));

    std::array<std::uint8_t, kSectorSize> sector;
    VolumeTransfer beyond{.offset = kSize,
                          .length = sector.size(),
                          .address = sector.data(),
                          .direction = TransferDirection::Read};
    EXPECT_FALSE(Control(opened, kIoctlVolumeTransfer, beyond));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
    EXPECT_FALSE(control_(opened, 0x4711, nullptr, 0, nullptr, 0, nullptr));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_NOT_SUPPORTED});
    EXPECT_FALSE(control_(opened, kIoctlVolumeQuery, nullptr, sizeof(record_), nullptr, 0, nullptr));
    EXPECT_EQ(read_(opened, sector.data(), kSectorSize), static_cast<DWORD>(-1));
    EXPECT_TRUE(close_(opened));
    EXPECT_TRUE(control_(device, kIoctlVolumeDetach, nullptr, 0, nullptr, 0, nullptr));
    EXPECT_TRUE(deinit_(device));
}

} // namespace
} // namespace quilla
