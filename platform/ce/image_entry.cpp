// What the compiler's start-up files give elsewhere: the entry of a library and the end of a program that has
// lost its way. No object of the product has a constructor that runs before its entry.

#include <cstdint>
#include <cstdlib>
#include <windows.h>

// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the linker's and the library's names

extern "C" BOOL _DllMainCRTStartup(HANDLE /*library*/, DWORD /*reason*/, void* /*reserved*/) {
    return TRUE;
}

extern "C" __attribute__((noreturn)) void abort() {
    constexpr std::uintptr_t kCurrentProcess = 66; // the pseudo handle that GetCurrentProcess gives there
    constexpr UINT kAborted = 3;
    for (;;)
        TerminateProcess(reinterpret_cast<HANDLE>(kCurrentProcess), kAborted);
}

// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
