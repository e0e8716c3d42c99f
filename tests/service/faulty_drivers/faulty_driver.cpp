// Drivers that the device manager must turn away: FAULT 1 lacks an entry point, FAULT 2 refuses to start,
// FAULT 3 starts but cannot be opened, FAULT 4 opens but has no size.

#include <cstdint>
#include <windows.h>

#define EXPORT extern "C" __declspec(dllexport)

EXPORT std::uintptr_t SEC_Init(std::uintptr_t) {
    return FAULT == 2 ? 0 : 1;
}
EXPORT BOOL SEC_Deinit(std::uintptr_t) {
    return TRUE;
}
EXPORT std::uintptr_t SEC_Open(std::uintptr_t, DWORD, DWORD) {
    return FAULT == 3 ? 0 : 1;
}
EXPORT BOOL SEC_Close(std::uintptr_t) {
    return TRUE;
}
#if FAULT != 1
EXPORT BOOL SEC_IOControl(std::uintptr_t, DWORD, BYTE*, DWORD, BYTE*, DWORD, DWORD*) {
    return FALSE;
}
#endif
