// Calls into the driver library by the names of its entry points.

#include "desktop/stream_driver.h"

#include <bit>
#include <cstdio>
#include <iterator>

namespace quilla {

namespace {

/// Finds one entry point by the driver's prefix and the point's name.
template <typename Function>
bool ResolveOne(HMODULE library, const wchar_t* prefix, const char* name, Function& function) {
    char exported[32];
    const int length = std::snprintf(exported, std::size(exported), "%ls_%s", prefix, name);
    if (length < 0 || static_cast<std::size_t>(length) >= std::size(exported))
        return false;
    function = std::bit_cast<Function>(GetProcAddress(library, exported));
    return function != nullptr;
}

} // namespace

bool StreamDriver::Load(const wchar_t* library, const wchar_t* prefix, std::uintptr_t context) {
    Unload();
    library_ = LoadFile(library);
    if (library_ && Resolve(prefix))
        device_ = call_.init(context);
    if (device_ == 0)
        library_.Reset();
    return device_ != 0;
}

UniqueLibrary StreamDriver::LoadFile(const wchar_t* library) {
    return UniqueLibrary(LoadLibraryExW(library, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32));
}

bool StreamDriver::Resolve(const wchar_t* prefix) {
    const HMODULE library = library_.Get();
    return ResolveOne(library, prefix, "Init", call_.init) &&
           ResolveOne(library, prefix, "Deinit", call_.deinit) &&
           ResolveOne(library, prefix, "Open", call_.open) &&
           ResolveOne(library, prefix, "Close", call_.close) &&
           ResolveOne(library, prefix, "IOControl", call_.control);
}

void StreamDriver::Unload() {
    if (device_ != 0)
        call_.deinit(device_);
    device_ = 0;
    library_.Reset();
}

std::uintptr_t StreamDriver::Open(DWORD access, DWORD sharing) const {
    return call_.open(device_, access, sharing);
}

void StreamDriver::Close(std::uintptr_t open) const {
    call_.close(open);
}

bool StreamDriver::Control(std::uintptr_t open, DWORD code, void* input, DWORD inputSize, void* output,
                           DWORD outputSize, DWORD* returned) const {
    DWORD ignored = 0;
    return call_.control(open, code, static_cast<BYTE*>(input), inputSize, static_cast<BYTE*>(output),
                         outputSize, returned != nullptr ? returned : &ignored) != FALSE;
}

} // namespace quilla
