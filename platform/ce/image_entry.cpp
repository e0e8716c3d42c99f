// What the compiler's start-up files give elsewhere: the entries of a program and of a library, objects that
// live as long as the program, and the end of a program that has lost its way. The driver has no such
// objects.

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <windows.h>

namespace {

using Routine = void (*)();

constexpr std::size_t kMostRoutines = 32;
std::array<Routine, kMostRoutines> destructors;
std::size_t destructorCount = 0;

} // namespace

// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the linker's and the library's names

// Marks of the linker around the addresses of constructors.
#ifdef __i386__
extern "C" const Routine constructors[] __asm__("___CTOR_LIST__"); // the count or -1, the addresses, 0
#else
extern "C" const Routine constructors[] __asm__("constructors_mark"); // one word, the addresses, 0
#endif

extern "C" int atexit(Routine routine) {
    if (destructorCount == destructors.size())
        return -1;
    destructors[destructorCount++] = routine;
    return 0;
}

/// The system hands over what other systems let a program fetch; the result is the exit code.
extern "C" int WinMainCRTStartup(HINSTANCE instance, HINSTANCE previous, wchar_t* commandLine, int show) {
    for (const Routine* constructor = constructors + 1; *constructor != nullptr; ++constructor)
        (*constructor)();
    const int result = wWinMain(instance, previous, commandLine, show);
    while (destructorCount > 0)
        destructors[--destructorCount]();
    return result;
}

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
