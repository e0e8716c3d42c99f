#pragma once

/// Included before everything else in a build for Windows CE: what the platform declares and desktop headers
/// do not, or not under this name.

#include <windows.h>

#include <shellapi.h>

/// What EventModify does, and the notification event of a changed device (pkfuncs.h, notify.h).
inline constexpr DWORD EVENT_RESET = 2;
inline constexpr DWORD EVENT_SET = 3;
inline constexpr LONG NOTIFICATION_EVENT_DEVICE_CHANGE = 7;

#ifndef USER_DEFAULT_SCREEN_DPI
#define USER_DEFAULT_SCREEN_DPI 96
#endif

extern "C" {

/// Behind SetEvent, ResetEvent and PulseEvent, which are inline functions there.
__declspec(dllimport) BOOL EventModify(HANDLE event, DWORD function);

/// Fills a buffer from the system's cryptographic generator.
__declspec(dllimport) BOOL CeGenRandom(DWORD size, BYTE* buffer);

/// The device manager.
__declspec(dllimport) HANDLE
    RegisterDevice(const wchar_t* prefix, DWORD index, const wchar_t* library, DWORD context);
__declspec(dllimport) BOOL DeregisterDevice(HANDLE device);
__declspec(dllimport) void* MapPtrToProcess(void* address, HANDLE process);
__declspec(dllimport) BOOL CeEventHasOccurred(LONG event, const wchar_t* tail);

__declspec(dllimport) BOOL GetMouseMovePoints(POINT* points, UINT count, UINT* retrieved);
#undef Shell_NotifyIcon
__declspec(dllimport) BOOL Shell_NotifyIcon(DWORD message, NOTIFYICONDATAW* data);
__declspec(dllimport) FARPROC GetProcAddressA(HMODULE library, const char* name);
__declspec(dllimport) FARPROC GetProcAddressW(HMODULE library, const wchar_t* name);
}

namespace quilla {

/// The identifiers of the user-interface thread and of its process, found through a window: the system's own
/// inline functions read a page of its kernel, which nothing but the real system has. To be called on that
/// thread.
DWORD OwnThreadId();
DWORD OwnProcessId();

/// The pseudo handle of the process, and functions that are inline there.
inline HANDLE OwnProcess() {
    constexpr ULONG_PTR kCurrentProcess = 66;
    return reinterpret_cast<HANDLE>(kCurrentProcess);
}
inline BOOL SignalEvent(HANDLE event) {
    return EventModify(event, EVENT_SET);
}
inline BOOL UnsignalEvent(HANDLE event) {
    return EventModify(event, EVENT_RESET);
}

inline int ScaleNumber(int number, int numerator, int denominator) {
    return static_cast<int>((static_cast<long long>(number) * numerator + denominator / 2) / denominator);
}

/// Short forms of messages and of a longer call.
inline BOOL SetButtonCheck(HWND dialog, int id, UINT check) {
    SendDlgItemMessageW(dialog, id, BM_SETCHECK, check, 0);
    return TRUE;
}
inline UINT GetButtonCheck(HWND dialog, int id) {
    return static_cast<UINT>(SendDlgItemMessageW(dialog, id, BM_GETCHECK, 0, 0));
}
inline DWORD AwaitObjects(DWORD count, const HANDLE* objects, BOOL /*all*/, DWORD milliseconds,
                          DWORD messages) {
    return MsgWaitForMultipleObjectsEx(count, const_cast<HANDLE*>(objects), milliseconds, messages, 0);
}

/// The shell knows the first form of its record only, and no notices.
inline BOOL NotifyIcon(DWORD message, NOTIFYICONDATAW* data) {
    data->cbSize = NOTIFYICONDATAW_V1_SIZE;
    return (data->uFlags & NIF_INFO) == 0 && Shell_NotifyIcon(message, data);
}

} // namespace quilla

#define CheckDlgButton quilla::SetButtonCheck
#define IsDlgButtonChecked quilla::GetButtonCheck
#define MsgWaitForMultipleObjects quilla::AwaitObjects
#define MulDiv quilla::ScaleNumber
#define Shell_NotifyIconW quilla::NotifyIcon
#define GetCurrentThreadId quilla::OwnThreadId
#define GetCurrentProcessId quilla::OwnProcessId
#define GetCurrentProcess quilla::OwnProcess
#define SetEvent quilla::SignalEvent
#define ResetEvent quilla::UnsignalEvent
#define LockResource(resource) reinterpret_cast<void*>(resource)
#define GetProcAddress GetProcAddressA

/// A key goes with all that is below it there.
#define RegDeleteTreeW RegDeleteKeyW

/// Libraries are looked for in fixed places, and no flag changes them.
#undef LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR
#undef LOAD_LIBRARY_SEARCH_SYSTEM32
#define LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR 0
#define LOAD_LIBRARY_SEARCH_SYSTEM32 0
