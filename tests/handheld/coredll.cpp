// coredll.dll for tests: what Windows CE's system library exports, on top of desktop Windows. Most of it are
// thunks made by make_coredll.py, which call a function of the desktop with the stack as that wants it; here
// stands what a desktop has under other names or not at all. For the x86 images of the handheld, whose calls
// are all cdecl.

#include "desktop/ce_services.h"
#include "platform/random.h"

#include <commctrl.h>
#include <cstring>
#include <shellapi.h>
#include <span>
#include <windows.h>

#define CE_EXPORT extern "C" __declspec(dllexport)

namespace {

constexpr ULONG_PTR kCurrentProcess = 66;

HANDLE RealProcess(HANDLE process) {
    return reinterpret_cast<ULONG_PTR>(process) == kCurrentProcess ? GetCurrentProcess() : process;
}

/// The arguments in a command line, behind the program's name.
wchar_t* Arguments() {
    wchar_t* line = GetCommandLineW();
    const wchar_t end = *line == L'"' ? L'"' : L' ';
    for (++line; *line != 0 && *line != end; ++line) {
    }
    while (*line == L'"' || *line == L' ')
        ++line;
    return line;
}

using Entry = int(HINSTANCE, HINSTANCE, wchar_t*, int);
constexpr std::size_t kJumpSize = 5;
BYTE* entry = nullptr;
BYTE entryCode[kJumpSize];

void PutEntryCode(const BYTE* code) {
    DWORD former = 0;
    VirtualProtect(entry, kJumpSize, PAGE_EXECUTE_READWRITE, &former);
    std::memcpy(entry, code, kJumpSize);
    VirtualProtect(entry, kJumpSize, former, &former);
    FlushInstructionCache(GetCurrentProcess(), entry, kJumpSize);
}

/// Calls the entry as Windows CE does.
void CallEntry() {
    PutEntryCode(entryCode);
    ExitProcess(static_cast<UINT>(
        reinterpret_cast<Entry*>(entry)(GetModuleHandleW(nullptr), nullptr, Arguments(), SW_SHOW)));
}

/// For as long as it takes the program to get there, a jump stands at its entry.
void TakeEntry() {
    auto* const image = reinterpret_cast<BYTE*>(GetModuleHandleW(nullptr));
    const auto& headers =
        *reinterpret_cast<IMAGE_NT_HEADERS*>(image + reinterpret_cast<IMAGE_DOS_HEADER*>(image)->e_lfanew);
    if (headers.OptionalHeader.Subsystem != IMAGE_SUBSYSTEM_WINDOWS_CE_GUI)
        return;
    entry = image + headers.OptionalHeader.AddressOfEntryPoint;
    std::memcpy(entryCode, entry, kJumpSize);
    BYTE jump[kJumpSize] = {0xE9};
    const auto distance = reinterpret_cast<BYTE*>(&CallEntry) - (entry + kJumpSize);
    std::memcpy(jump + 1, &distance, sizeof(distance));
    PutEntryCode(jump);
}

} // namespace

BOOL WINAPI DllMain(HINSTANCE /*module*/, DWORD reason, void* /*reserved*/) {
    if (reason == DLL_PROCESS_ATTACH)
        TakeEntry();
    return TRUE;
}

CE_EXPORT HANDLE CoreRegisterDevice(const wchar_t* prefix, DWORD index, const wchar_t* library,
                                    DWORD context) {
    return ce::RegisterDevice(prefix, index, library, context);
}
CE_EXPORT BOOL CoreDeregisterDevice(HANDLE device) {
    return ce::DeregisterDevice(device);
}
CE_EXPORT HANDLE CoreCreateFileW(const wchar_t* name, DWORD access, DWORD sharing,
                                 SECURITY_ATTRIBUTES* security, DWORD creation, DWORD attributes,
                                 HANDLE pattern) {
    return ce::CreateFileW(name, access, sharing, security, creation, attributes, pattern);
}
CE_EXPORT BOOL CoreDeviceIoControl(HANDLE file, DWORD code, void* input, DWORD inputSize, void* output,
                                   DWORD outputSize, DWORD* returned, OVERLAPPED* overlapped) {
    return ce::DeviceIoControl(file, code, input, inputSize, output, outputSize, returned, overlapped);
}
CE_EXPORT BOOL CoreCloseHandle(HANDLE file) {
    return ce::CloseHandle(file);
}
CE_EXPORT void* CoreMapPtrToProcess(void* address, HANDLE process) {
    return ce::MapPtrToProcess(address, process);
}
CE_EXPORT BOOL CoreEventModify(HANDLE event, DWORD action) {
    return ce::EventModify(event, action);
}
CE_EXPORT BOOL CoreSendNotifyMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    return ce::SendNotifyMessageW(window, message, wParam, lParam);
}
CE_EXPORT BOOL CoreCeEventHasOccurred(LONG event, const wchar_t* tail) {
    return ce::CeEventHasOccurred(event, tail);
}
CE_EXPORT BOOL CoreCeGenRandom(DWORD size, BYTE* buffer) {
    return quilla::FillFromSystemRandom(std::as_writable_bytes(std::span(buffer, size)));
}
CE_EXPORT BOOL CoreGetMouseMovePoints(POINT* points, UINT count, UINT* retrieved) {
    *retrieved = count > 0 && GetCursorPos(points) ? 1 : 0;
    return TRUE;
}
CE_EXPORT FARPROC CoreGetProcAddressA(HMODULE library, const char* name) {
    return GetProcAddress(library, name);
}
CE_EXPORT FARPROC CoreGetProcAddressW(HMODULE library, const wchar_t* name) {
    char narrow[64];
    WideCharToMultiByte(CP_ACP, 0, name, -1, narrow, sizeof(narrow), nullptr, nullptr);
    return GetProcAddress(library, narrow);
}
/// The library of controls is this one.
CE_EXPORT HMODULE CoreLoadLibraryW(const wchar_t* name) {
    return LoadLibraryW(lstrcmpiW(name, L"commctrl.dll") == 0 ? L"coredll.dll" : name);
}
CE_EXPORT BOOL CoreShell_NotifyIcon(DWORD message, NOTIFYICONDATAW* data) {
    return Shell_NotifyIconW(message, data);
}
CE_EXPORT BOOL CoreTerminateProcess(HANDLE process, UINT code) {
    return TerminateProcess(RealProcess(process), code);
}
CE_EXPORT BOOL CoreFlushInstructionCache(HANDLE process, const void* address, DWORD size) {
    return FlushInstructionCache(RealProcess(process), address, size);
}
CE_EXPORT BOOL CoreReadProcessMemory(HANDLE process, const void* address, void* buffer, DWORD size,
                                     SIZE_T* count) {
    return ReadProcessMemory(RealProcess(process), address, buffer, size, count);
}
CE_EXPORT LONG CoreRegDeleteKeyW(HKEY key, const wchar_t* name) {
    return RegDeleteTreeW(key, name);
}

CE_EXPORT BOOL CoreDeleteAndRenameFile(const wchar_t* former, const wchar_t* replacement) {
    return MoveFileExW(replacement, former, MOVEFILE_REPLACE_EXISTING);
}

// commctrl.dll

CE_EXPORT BOOL CoreInitCommonControlsEx(const INITCOMMONCONTROLSEX* classes) {
    return InitCommonControlsEx(classes);
}
CE_EXPORT HWND CoreCommandBar_Create(HINSTANCE instance, HWND parent, int id) {
    return CreateWindowExW(0, TOOLBARCLASSNAMEW, nullptr,
                           WS_CHILD | WS_VISIBLE | CCS_NODIVIDER | TBSTYLE_FLAT, 0, 0, 0, 0, parent,
                           reinterpret_cast<HMENU>(static_cast<INT_PTR>(id)), instance, nullptr);
}
CE_EXPORT BOOL CoreCommandBar_InsertMenubar(HWND bar, HINSTANCE instance, WORD menu, WORD /*place*/) {
    return SetMenu(GetParent(bar), LoadMenuW(instance, MAKEINTRESOURCEW(menu)));
}
CE_EXPORT BOOL CoreCommandBar_AddAdornments(HWND /*bar*/, DWORD /*flags*/, DWORD /*reserved*/) {
    return TRUE; // a desktop's window has its close button in the caption
}
CE_EXPORT int CoreCommandBar_Height(HWND bar) {
    RECT place;
    GetWindowRect(bar, &place);
    return place.bottom - place.top;
}
