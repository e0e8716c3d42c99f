#pragma once

#include <windows.h>

namespace quilla {

/// Calls a routine at intervals on the thread of a window, also while a menu or a dialog is open. Stands in
/// for the system's wake-up of the program ("AppRunAtTime"), which no desktop sends.
class WakeUpTimer {
  public:
    using Routine = void (*)(void* context);

    WakeUpTimer(Routine routine, void* context) : routine_(routine), context_(context) {}
    ~WakeUpTimer() { Stop(); }
    WakeUpTimer(const WakeUpTimer&) = delete;
    WakeUpTimer& operator=(const WakeUpTimer&) = delete;

    /// Starts to call the routine; does nothing if it runs already.
    void Start(HWND window, UINT milliseconds);
    void Stop();

  private:
    static void CALLBACK OnTimer(HWND window, UINT message, UINT_PTR timer, DWORD time);

    Routine routine_;
    void* context_;
    HWND window_ = nullptr;
};

} // namespace quilla
