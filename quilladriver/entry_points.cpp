// The driver as the device manager sees it: a stream driver with the prefix SEC whose device is a block
// device, hence used by control codes only.

#include "platform/clock.h"
#include "quilladriver/sector_kernel.h"
#include "quilladriver/volume_driver.h"

#include <cstdint>
#include <memory>
#include <new>
#include <span>
#include <windows.h>

#define QUILLA_EXPORT extern "C" __declspec(dllexport)

namespace {

using quilla::DriverStatus;
using quilla::VolumeDriver;
using quilla::VolumeRecord;

constexpr DWORD kNoBytes = static_cast<DWORD>(-1);

VolumeDriver* DriverOf(std::uintptr_t context) {
    return reinterpret_cast<VolumeDriver*>(context);
}

DWORD RefuseStreamAccess() {
    SetLastError(ERROR_NOT_SUPPORTED);
    return kNoBytes;
}

} // namespace

/// Takes the address of a VolumeRecord with its key; zero when the volume cannot be served. A key file is no
/// volume: the first block that a client writes would destroy the master key.
QUILLA_EXPORT std::uintptr_t SEC_Init(std::uintptr_t context) {
    auto* const record = reinterpret_cast<VolumeRecord*>(context);
    if (record == nullptr || quilla::FieldText(record->Path).size() == quilla::kPathUnits ||
        quilla::FieldText(record->KeyPath).size() == quilla::kPathUnits ||
        quilla::File::IsSameFile(record->Path, record->KeyPath))
        return 0;
    quilla::File file = quilla::File::Open(record->Path, quilla::FileAccess::ReadWrite,
                                           quilla::FileSharing::None, quilla::FileCreation::OpenExisting);
    std::unique_ptr<VolumeDriver> driver(new (std::nothrow) VolumeDriver(quilla::LocalFileTime));
    if (!driver || !file.IsOpen() || !driver->Attach(std::move(file), *record))
        return 0;
    return reinterpret_cast<std::uintptr_t>(driver.release());
}

QUILLA_EXPORT BOOL SEC_Deinit(std::uintptr_t device) {
    delete DriverOf(device);
    return TRUE;
}

QUILLA_EXPORT std::uintptr_t SEC_Open(std::uintptr_t device, DWORD /*access*/, DWORD /*share*/) {
    return device;
}

QUILLA_EXPORT BOOL SEC_Close(std::uintptr_t /*open*/) {
    return TRUE;
}

QUILLA_EXPORT DWORD SEC_Read(std::uintptr_t /*open*/, void* /*buffer*/, DWORD /*count*/) {
    return RefuseStreamAccess();
}

QUILLA_EXPORT DWORD SEC_Write(std::uintptr_t /*open*/, const void* /*buffer*/, DWORD /*count*/) {
    return RefuseStreamAccess();
}

QUILLA_EXPORT DWORD SEC_Seek(std::uintptr_t /*open*/, long /*amount*/, WORD /*origin*/) {
    return RefuseStreamAccess();
}

QUILLA_EXPORT BOOL SEC_IOControl(std::uintptr_t open, DWORD code, BYTE* in, DWORD inSize, BYTE* out,
                                 DWORD outSize, DWORD* returned) {
    if (open == 0 || (in == nullptr && inSize != 0) || (out == nullptr && outSize != 0)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    std::uint32_t count = 0;
    const DriverStatus status =
        DriverOf(open)->Control(code, std::span(reinterpret_cast<std::byte*>(in), inSize),
                                std::span(reinterpret_cast<std::byte*>(out), outSize), count);
    if (returned != nullptr)
        *returned = count;
    if (status != DriverStatus::Success)
        SetLastError(static_cast<DWORD>(status));
    return status == DriverStatus::Success;
}

/// The medium is an ordinary file: nothing to do when the power goes or comes.
QUILLA_EXPORT void SEC_PowerUp(std::uintptr_t /*device*/) {}
QUILLA_EXPORT void SEC_PowerDown(std::uintptr_t /*device*/) {}

/// Name of the kernel that serves a cipher on this processor, as ASCII; empty for a cipher without one.
QUILLA_EXPORT const char* QuillaKernelName(DWORD cipher) {
    const quilla::SectorKernel* const kernel =
        quilla::ChooseSectorKernel(static_cast<quilla::CipherId>(cipher));
    return kernel == nullptr ? "" : kernel->name;
}
