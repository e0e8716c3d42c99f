#include "ui/notification_icon.h"

#include "platform/text.h"
#include "platform/win32/format_text.h"
#include "service/window_messages.h"
#include "toolkit/dpi.h"

#include <shellapi.h>

namespace quilla {

namespace {

constexpr UINT kIconId = 101;
constexpr int kTipUnits = 64; // what every version of the shell shows

NOTIFYICONDATAW DataFor(HWND owner, UINT flags) {
    NOTIFYICONDATAW data{};
    data.cbSize = sizeof(data);
    data.hWnd = owner;
    data.uID = kIconId;
    data.uFlags = flags;
    data.uCallbackMessage = WM_TRAYICON;
    return data;
}

HICON SmallIconOf(HWND window) {
    return reinterpret_cast<HICON>(SendMessageW(window, WM_GETICON, ICON_SMALL, 0));
}

/// The window's title, alone while nothing is mounted.
void NameTip(NOTIFYICONDATAW& data, int mounted) {
    wchar_t title[kTipUnits];
    GetWindowTextW(data.hWnd, title, kTipUnits);
    if (mounted == 0)
        CopyText(data.szTip, title);
    else
        FormatText(std::span(data.szTip, kTipUnits), L"%ls: %d mounted", title, mounted);
}

} // namespace

void NotificationIcon::Add(HWND owner) {
    owner_ = owner;
    LoadMark();
    NOTIFYICONDATAW data = DataFor(owner, NIF_MESSAGE | NIF_ICON | NIF_TIP);
    data.hIcon = Icon();
    NameTip(data, mounted_);
    Shell_NotifyIconW(NIM_ADD, &data);
}

void NotificationIcon::LoadMark() {
    mark_ = LoadProgramIcon(WindowMetric(owner_, SM_CXSMICON), IDI_MOUNTED);
}

HICON NotificationIcon::Icon() const {
    return mounted_ > 0 && mark_ ? mark_.Get() : SmallIconOf(owner_);
}

void NotificationIcon::UpdateIcon() {
    LoadMark();
    NOTIFYICONDATAW data = DataFor(owner_, NIF_ICON);
    data.hIcon = Icon();
    Shell_NotifyIconW(NIM_MODIFY, &data);
}

void NotificationIcon::ShowMounted(int count) {
    if (count == mounted_)
        return;
    mounted_ = count;
    NOTIFYICONDATAW data = DataFor(owner_, NIF_ICON | NIF_TIP);
    data.hIcon = Icon();
    NameTip(data, mounted_);
    Shell_NotifyIconW(NIM_MODIFY, &data);
}

void NotificationIcon::ShowNotice(const wchar_t* title, const wchar_t* text, DWORD kind) {
    NOTIFYICONDATAW data = DataFor(owner_, NIF_INFO);
    CopyText(data.szInfoTitle, title);
    CopyText(data.szInfo, text);
    data.dwInfoFlags = kind;
    Shell_NotifyIconW(NIM_MODIFY, &data);
}

void NotificationIcon::Remove() {
    NOTIFYICONDATAW data = DataFor(owner_, 0);
    Shell_NotifyIconW(NIM_DELETE, &data);
}

} // namespace quilla
