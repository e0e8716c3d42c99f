#include "desktop/wake_up_timer.h"

#include <utility>

namespace quilla {

void WakeUpTimer::Start(HWND window, UINT milliseconds) {
    // The timer's number is this object's address, which leads OnTimer back here.
    if (window_ == nullptr && SetTimer(window, reinterpret_cast<UINT_PTR>(this), milliseconds, OnTimer) != 0)
        window_ = window;
}

void WakeUpTimer::Stop() {
    if (window_ != nullptr)
        KillTimer(std::exchange(window_, nullptr), reinterpret_cast<UINT_PTR>(this));
}

void CALLBACK WakeUpTimer::OnTimer(HWND /*window*/, UINT /*message*/, UINT_PTR timer, DWORD /*time*/) {
    const auto& self = *reinterpret_cast<const WakeUpTimer*>(timer);
    self.routine_(self.context_);
}

} // namespace quilla
