#include "service/detachment.h"

#include "platform/clock.h"
#include "service/driver_control.h"
#include "service/window_messages.h"

namespace quilla {

Detachment::Detachment(VolumeRecord& record, DismountReason reason, HWND window)
    : record_(record), reason_(reason), window_(window) {
    thread_.Reset(CreateThread(nullptr, 0, Run, this, 0, nullptr));
    if (!thread_)
        Detach();
}

Detachment::~Detachment() {
    if (thread_)
        WaitForSingleObject(thread_.Get(), INFINITE);
}

DWORD WINAPI Detachment::Run(void* detachment) {
    static_cast<Detachment*>(detachment)->Detach();
    return 0;
}

void Detachment::Detach() {
    const HWND window = window_;
    report_ = DriverControl::DetachDriver(record_);
    SetEvent(over_.Get());
    PostMessageW(window, WM_DETACHED, 0, 0);
}

void Detachment::Await(ULONGLONG patience) const {
    const ULONGLONG deadline = begin_ + patience;
    const HANDLE over = over_.Get();
    for (ULONGLONG now = MonotonicMilliseconds(); !IsOver() && now < deadline;
         now = MonotonicMilliseconds()) {
        MsgWaitForMultipleObjectsEx(1, &over, static_cast<DWORD>(deadline - now), QS_SENDMESSAGE | QS_PAINT,
                                    MWMO_INPUTAVAILABLE);
        MSG paint;
        while (PeekMessageW(&paint, nullptr, 0, 0, PM_REMOVE | PM_QS_SENDMESSAGE | PM_QS_PAINT))
            DispatchMessageW(&paint);
    }
}

} // namespace quilla
