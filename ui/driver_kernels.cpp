#include "ui/driver_kernels.h"

#include "platform/win32/handle.h"
#include "platform/win32/program_folder.h"
#include "volume/cipher_id.h"

#include <cwchar>

namespace quilla {

namespace {

/// Exported by the driver: the ASCII name of the kernel that serves a cipher, empty without one.
using KernelNameFunction = const char* (*)(DWORD cipher);

UniqueLibrary LoadDriverLibrary() {
    PathText path;
    if (!PathBesideProgram(L"QuillaDriver.dll", path))
        return UniqueLibrary();
    return UniqueLibrary(
        LoadLibraryExW(path, nullptr, LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_SYSTEM32));
}

} // namespace

void DescribeDriverKernels(std::span<wchar_t> text) {
    const UniqueLibrary driver = LoadDriverLibrary();
    const auto kernelName = reinterpret_cast<KernelNameFunction>(
        reinterpret_cast<void*>(driver ? GetProcAddress(driver.Get(), "QuillaKernelName") : nullptr));
    if (kernelName)
        _snwprintf(text.data(), text.size(), L"Twofish kernel: %hs\nCAST kernel: %hs",
                   kernelName(static_cast<DWORD>(CipherId::Twofish)),
                   kernelName(static_cast<DWORD>(CipherId::Cast128)));
    else
        _snwprintf(text.data(), text.size(), L"The driver QuillaDriver.dll is missing");
    text.back() = 0;
}

} // namespace quilla
