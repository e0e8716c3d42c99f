// Dismounts all volumes when the session ends, the screen is locked or the machine is suspended.

#include "ui/dismount_occasions.h"

#include "ui/resource.h"
#include "ui/window_settings.h"

#include <iterator>
#include <wtsapi32.h>

namespace quilla {

namespace {

struct Occasion {
    int command;
    UINT message;
    WPARAM event;
    const wchar_t* valueName;
    DWORD atFirst;
};

constexpr Occasion kAll[] = {
    {IDM_ON_SUSPEND, WM_POWERBROADCAST, PBT_APMSUSPEND, L"DismountOnSuspend", 0},
    {IDM_ON_LOG_OFF, WM_ENDSESSION, TRUE, L"DismountOnLogOff", 1},
    {IDM_ON_LOCK, WM_WTSSESSION_CHANGE, WTS_SESSION_LOCK, L"DismountOnScreenLock", 0},
};

} // namespace

void DismountOccasions::Begin(HWND window) {
    static_assert(std::size(kAll) == kOccasions);
    window_ = window;
    WTSRegisterSessionNotification(window, NOTIFY_FOR_THIS_SESSION);
    for (int i = 0; i < kOccasions; ++i) {
        DWORD value = kAll[i].atFirst;
        DWORD size = sizeof(value);
        if (RegGetValueW(HKEY_CURRENT_USER, kWindowSettingsKey, kAll[i].valueName, RRF_RT_REG_DWORD, nullptr,
                         &value, &size) != ERROR_SUCCESS)
            value = kAll[i].atFirst;
        isChosen_[i] = value != 0;
    }
}

void DismountOccasions::End() {
    WTSUnRegisterSessionNotification(window_);
}

bool DismountOccasions::HasCome(const MSG& message) const {
    for (int i = 0; i < kOccasions; ++i)
        if (isChosen_[i] && message.message == kAll[i].message && message.wParam == kAll[i].event)
            return true;
    return false;
}

bool DismountOccasions::OnCommand(int id) {
    for (int i = 0; i < kOccasions; ++i) {
        if (id != kAll[i].command)
            continue;
        isChosen_[i] = !isChosen_[i];
        const DWORD value = isChosen_[i];
        RegSetKeyValueW(HKEY_CURRENT_USER, kWindowSettingsKey, kAll[i].valueName, REG_DWORD, &value,
                        sizeof(value));
        return true;
    }
    return false;
}

bool DismountOccasions::OnUpdateCommand(BCommandState& state) const {
    for (int i = 0; i < kOccasions; ++i) {
        if (state.id != kAll[i].command)
            continue;
        state.Enable(true);
        state.SetCheck(isChosen_[i]);
        return true;
    }
    return false;
}

} // namespace quilla
