#pragma once

#include <windows.h>

/// Services of Windows CE that the rest of the program calls by their own names and, where desktop Windows
/// lacks them, finds here with the same meaning. A parameter that carries an address in a DWORD there is as
/// wide as a pointer here. On Windows CE itself the names are the system's.
namespace ce {

#ifdef UNDER_CE

using ::CeEventHasOccurred;
using ::CloseHandle;
using ::CreateFileW;
using ::DeregisterDevice;
using ::DeviceIoControl;
using ::EVENT_RESET;
using ::EVENT_SET;
using ::EventModify;
using ::MapPtrToProcess;
using ::NOTIFICATION_EVENT_DEVICE_CHANGE;
using ::RegisterDevice;
using ::SendNotifyMessageW;

inline constexpr bool kTellsProgramsOfFailures = true;

#else

/// What EventModify does, and the notification event of a changed device (pkfuncs.h, notify.h).
inline constexpr DWORD EVENT_RESET = 2;
inline constexpr DWORD EVENT_SET = 3;
inline constexpr LONG NOTIFICATION_EVENT_DEVICE_CHANGE = 7;

/// Loads a stream driver as the device "prefix" + index + ":" and starts it with a context; exports it to
/// block device clients. Returns a small number as the handle, or null: an index above 9 or in use, a library
/// outside the program's folder or without the driver's entry points, a driver that refuses to start.
HANDLE RegisterDevice(const wchar_t* prefix, DWORD index, const wchar_t* library, DWORD_PTR context);

/// Ends the device's export, stops its driver and unloads it.
BOOL DeregisterDevice(HANDLE device);

/// Opens a registered device by its name ("SEC0:"), or any file.
HANDLE CreateFileW(const wchar_t* name, DWORD access, DWORD sharing, SECURITY_ATTRIBUTES* security,
                   DWORD creation, DWORD attributes, HANDLE pattern);

/// Sends a control code to what CreateFileW opened.
BOOL DeviceIoControl(HANDLE file, DWORD code, void* input, DWORD inputSize, void* output, DWORD outputSize,
                     DWORD* returned, OVERLAPPED* overlapped);

/// Closes what CreateFileW opened.
BOOL CloseHandle(HANDLE file);

/// Makes an address usable by a driver: drivers live in this process, so it is the address itself.
inline void* MapPtrToProcess(void* address, HANDLE /*process*/) {
    return address;
}

/// Signals or resets an event.
BOOL EventModify(HANDLE event, DWORD action);

/// Sends a message to a window, or to all top-level windows with HWND_BROADCAST, without waiting for any that
/// does not answer within a moment.
BOOL SendNotifyMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

/// Starts every program that asked for it on an event, with the given tail on its command line. The programs
/// are the string values of HKEY_CURRENT_USER\Software\Orvane\Quilla\DeviceChange, each one a command line.
BOOL CeEventHasOccurred(LONG event, const wchar_t* tail);

/// Whether programs are started for a device that could not be loaded, too. Its name is another's where all
/// names are taken, and a user's command would meet that one.
inline constexpr bool kTellsProgramsOfFailures = false;

#endif

} // namespace ce

/// What a process owes a desktop and not Windows CE.
namespace quilla {

/// Passes this process's right to come to the front on to the process of a window. The user's click started
/// this process, so desktop Windows would not let the other one take the foreground by itself.
void AllowComingToFront(HWND window);

/// Confines this process to libraries of the program's own folder and the system's: the current folder and
/// the search path never supply one. Called before anything else.
void RestrictLibrarySearch();

} // namespace quilla
