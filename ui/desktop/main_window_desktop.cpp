// The main window on a desktop: its place, resolutions, dropped files and the notification icon's menu.

#include "platform/error_box.h"
#include "service/window_messages.h"
#include "toolkit/dpi.h"
#include "ui/clipboard.h"
#include "ui/dialog_support.h"
#include "ui/file_name.h"
#include "ui/main_window.h"
#include "ui/menu_shortcuts.h"
#include "ui/resource.h"

#include <cwchar>

namespace quilla {

namespace {

/// Of a first start, in pixels at 96 per inch: room for the columns, a scroll bar and about fifteen rows.
constexpr int kFirstWidth = 660;
constexpr int kFirstHeight = 380;
constexpr int kLeastWidth = 260;
constexpr int kLeastHeight = 160;

/// Whether enough of a window would be on a screen for the user to get at it.
bool IsReachable(const RECT& place) {
    return MonitorFromRect(&place, MONITOR_DEFAULTTONULL) != nullptr;
}

/// What a double click does, or what a mounted volume is good for.
void FitVolumeMenu(HMENU menu, const ListedVolume& volume) {
    const bool isMounted = volume.record.IsMounted();
    if (isMounted) {
        AppendMenuW(menu, MF_SEPARATOR, 0, nullptr);
        AppendMenuW(menu, MF_STRING, IDM_COPY_ADDRESS, L"Copy Address");
        // Also of a drive without letters: it may have been formatted meanwhile.
        if (volume.drive == DriveState::None || volume.driveLetters[0] == 0)
            AppendMenuW(menu, MF_STRING, IDM_ATTACH_DRIVE, L"Attach as Drive");
        if (volume.drive == DriveState::Attached)
            AppendMenuW(menu, MF_STRING, IDM_DETACH_DRIVE, L"Detach");
    }
    SetMenuDefaultItem(menu, isMounted ? IDM_COPY_ADDRESS : IDM_MOUNT, FALSE);
}

} // namespace

const LONG MainWindow::kWindowStyle = WS_OVERLAPPEDWINDOW | WS_CLIPCHILDREN;

void MainWindow::RestoreSettings() {
    const WindowSettings settings = LoadWindowSettings();
    if (settings.hasPlace && IsReachable(settings.place)) {
        WINDOWPLACEMENT placement{};
        placement.length = sizeof(placement);
        placement.showCmd = SW_HIDE;
        RECT& place = placement.rcNormalPosition;
        place = settings.place;
        const int dpi = static_cast<int>(WindowDpi(hwnd));
        place.right = place.left + MulDiv(place.right - place.left, dpi, settings.dpi);
        place.bottom = place.top + MulDiv(place.bottom - place.top, dpi, settings.dpi);
        SetWindowPlacement(hwnd, &placement);
    } else {
        SetWindowPos(hwnd, nullptr, 0, 0, ScaleToWindow(hwnd, kFirstWidth), ScaleToWindow(hwnd, kFirstHeight),
                     SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
    }
    maximizeWhenShown_ = settings.isMaximized;
    list_.Apply(settings);
    DragAcceptFiles(hwnd, TRUE);
}

void MainWindow::SaveSettings() const {
    WindowSettings settings;
    WINDOWPLACEMENT placement{};
    placement.length = sizeof(placement);
    settings.hasPlace = GetWindowPlacement(hwnd, &placement) != FALSE;
    settings.place = placement.rcNormalPosition;
    settings.dpi = static_cast<int>(WindowDpi(hwnd));
    settings.isMaximized = IsZoomed(hwnd) || maximizeWhenShown_;
    list_.Describe(settings);
    SaveWindowSettings(settings);
}

bool MainWindow::OnEditionMessage(const BMessage& message, LRESULT& result) {
    switch (message.message) {
    case WM_SHOWWINDOW:
        if (message.wParam && maximizeWhenShown_) {
            maximizeWhenShown_ = false;
            PostMessageW(hwnd, WM_SYSCOMMAND, SC_MAXIMIZE, 0);
        }
        return false;
    case WM_GETMINMAXINFO: {
        POINT& least = reinterpret_cast<MINMAXINFO*>(message.lParam)->ptMinTrackSize;
        least = {ScaleToWindow(hwnd, kLeastWidth), ScaleToWindow(hwnd, kLeastHeight)};
        return true;
    }
    case WM_DPICHANGED:
        OnDpiChanged(message.lParam);
        return true;
    case WM_DROPFILES:
        OnDropFiles(reinterpret_cast<HDROP>(message.wParam));
        return true;
    case WM_MENUCHAR:
        result = AnswerMenuLetter(reinterpret_cast<HMENU>(message.lParam),
                                  static_cast<wchar_t>(LOWORD(message.wParam)));
        return true;
    case WM_ENDSESSION:
        if (message.wParam) // the process is about to be ended
            SaveSettings();
        return true;
    default:
        return false;
    }
}

/// The place that the system proposes is read with care: the message may come from another program.
void MainWindow::OnDpiChanged(LPARAM placeAddress) {
    RECT place;
    SIZE_T size = 0;
    if (!ReadProcessMemory(GetCurrentProcess(), reinterpret_cast<const void*>(placeAddress), &place,
                           sizeof(place), &size))
        GetWindowRect(hwnd, &place);
    LoadIcons();
    icon_.UpdateIcon();
    bar_.LoadImages();
    list_.LoadImages();
    SetWindowPos(hwnd, nullptr, place.left, place.top, place.right - place.left, place.bottom - place.top,
                 SWP_NOZORDER | SWP_NOACTIVATE);
    PlaceList();
}

void MainWindow::OnDropFiles(HDROP drop) {
    constexpr UINT kCountFiles = 0xFFFFFFFF;
    const UINT count = DragQueryFileW(drop, kCountFiles, nullptr, 0);
    for (UINT i = 0; i < count; ++i) {
        wchar_t path[kPathUnits];
        if (DragQueryFileW(drop, i, nullptr, 0) >= kPathUnits) {
            ShowError(L"The path of the file is longer than 259 characters");
            continue;
        }
        DragQueryFileW(drop, i, path, kPathUnits);
        const wchar_t* const extension = std::wcsrchr(FileNameIn(path).data(), L'.');
        if (extension && lstrcmpiW(extension, L".raw") == 0)
            OpenVolume(path);
    }
    DragFinish(drop);
}

void MainWindow::ComeToFront() {
    if (IsIconic(hwnd))
        ShowWindow(hwnd, SW_RESTORE);
    SetWindowPos(hwnd, nullptr, 0, 0, 0, 0,
                 SWP_SHOWWINDOW | SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE | SWP_NOZORDER);
    SetForegroundWindow(GetLastActivePopup(hwnd));
}

void MainWindow::CopyAddress() {
    wchar_t address[DriverControl::kAddressUnits];
    if (DriverControl::CopyAddress(*SelectedVolume(), address))
        CopyToClipboard(hwnd, address);
}

void MainWindow::OpenTrayMenu() {
    if (const HWND dialog = FindOpenDialog()) { // its loop would have to carry the commands out
        SetForegroundWindow(dialog);
        return;
    }
    POINT place;
    GetCursorPos(&place);
    // The shell's convention: a menu of a window in the background would not close by a click beside it.
    SetForegroundWindow(hwnd);
    TrackMenu(IDR_MENU_TRAY, place, IDM_SHOW_WINDOW);
    PostMessageW(hwnd, WM_NULL, 0, 0);
}

void MainWindow::CompleteMenu(HMENU menu, int menuId, int defaultCommand) {
    if (defaultCommand)
        SetMenuDefaultItem(menu, static_cast<UINT>(defaultCommand), FALSE);
    if (menuId == IDR_MENU_VOLUME)
        FitVolumeMenu(menu, ListedAt(list_, SelectedRow(list_)));
    if (VolumeDrives::AttachesAfterMounting())
        CheckMenuItem(menu, IDM_ATTACH_AFTER_MOUNTING, MF_BYCOMMAND | MF_CHECKED);
    if (menuId == IDR_MENU_TRAY && AnyVolumeMounted(list_)) // a plain exit would hide the window and no more
        ModifyMenuW(menu, IDM_EXIT, MF_BYCOMMAND | MF_STRING, IDM_DISMOUNT_EXIT, L"Dismount All and Exit");
}

} // namespace quilla
