// Stands in the way of a program that looks for libraries where it should not: leaves a file "loaded" beside
// itself as soon as it is loaded.

#include <windows.h>

BOOL WINAPI DllMain(HINSTANCE library, DWORD reason, void* /*reserved*/) {
    wchar_t path[MAX_PATH];
    if (reason != DLL_PROCESS_ATTACH)
        return TRUE;
    DWORD length = GetModuleFileNameW(library, path, MAX_PATH - 8);
    while (length > 0 && path[length - 1] != L'\\')
        --length;
    lstrcpyW(path + length, L"loaded");
    CloseHandle(CreateFileW(path, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    return TRUE;
}
