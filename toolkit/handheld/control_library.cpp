#include "toolkit/handheld/control_library.h"

namespace quilla {

FARPROC FindInControlLibrary(ControlFunction function) {
    static const HMODULE library = LoadLibraryW(L"commctrl.dll"); // for as long as the program runs
    return library != nullptr ? GetProcAddressW(library, function.Name()) : nullptr;
}

} // namespace quilla
