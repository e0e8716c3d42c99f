#include "toolkit/handheld/control_library.h"

namespace quilla {

FARPROC FindInControlLibrary(const wchar_t* name) {
    static const HMODULE library = LoadLibraryW(L"commctrl.dll"); // for as long as the program runs
    return library != nullptr ? GetProcAddressW(library, name) : nullptr;
}

} // namespace quilla
