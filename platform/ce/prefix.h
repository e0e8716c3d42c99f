#pragma once

/// Included before everything else in a build for Windows CE: what the platform declares and desktop headers
/// do not, or not under this name.

#include <windows.h>

#ifndef EVENT_SET
#define EVENT_PULSE 1
#define EVENT_RESET 2
#define EVENT_SET 3
#endif

extern "C" {

/// Behind SetEvent, ResetEvent and PulseEvent, which are inline functions there.
__declspec(dllimport) BOOL EventModify(HANDLE event, DWORD function);

/// Fills a buffer from the system's cryptographic generator.
__declspec(dllimport) BOOL CeGenRandom(DWORD size, BYTE* buffer);
}
