// The main window as a window: creation, layout, closing and the messages it takes. Its commands are in
// main_window_commands.cpp.

#include "ui/main_window.h"

#include "desktop/ce_services.h"
#include "platform/error_box.h"
#include "platform/win32/format_text.h"
#include "service/window_messages.h"
#include "store/registry_store.h"
#include "toolkit/dpi.h"
#include "ui/dialog_support.h"
#include "ui/file_name.h"
#include "ui/resource.h"

#include <cwchar>
#include <utility>

namespace quilla {

MainWindow::MainWindow(const UiServices& services)
    : services_(services), server_(list_, services.driver, observer_) {}

void MainWindow::GetCreateDefaults(WNDCLASSW& windowClass, CREATESTRUCTW& creation) {
    BWindow::GetCreateDefaults(windowClass, creation);
    creation.lpszName = kMainWindowTitle;
    creation.style = kWindowStyle;
}

void MainWindow::Attach(HWND handle) {
    BWindow::Attach(handle);
    if (!hwnd)
        return;
    accelerators_ = LoadAcceleratorsW(GetModuleHandleW(nullptr), MAKEINTRESOURCEW(IDR_ACCELERATORS));
    LoadIcons();
    shellStarted_ = RegisterWindowMessageW(L"TaskbarCreated");
    icon_.Add(hwnd);
    occasions_.Begin(hwnd);
    bar_.Create(hwnd, nullptr, 0);
    bar_.InsertMenuBar(IDR_MENU_BAR, accelerators_);
    bar_.AddButtons();
    list_.Create(hwnd, nullptr, 0);
    SetErrorAnnouncer([](void* window) { PostMessageW(static_cast<HWND>(window), WM_SHOWERRORS, 0, 0); },
                      hwnd);
    RestoreSettings();
    PlaceList();
    SetFocus(list_.hwnd);
    savedFocus = list_.hwnd; // the window is not active yet
    LoadVolumeList(list_);
    list_.Sort();
}

void MainWindow::LoadIcons() {
    UniqueIcon smallIcon = LoadProgramIcon(WindowMetric(hwnd, SM_CXSMICON));
    UniqueIcon largeIcon = LoadProgramIcon(WindowMetric(hwnd, SM_CXICON));
    SendMessageW(hwnd, WM_SETICON, ICON_SMALL, reinterpret_cast<LPARAM>(smallIcon.Get()));
    SendMessageW(hwnd, WM_SETICON, ICON_BIG, reinterpret_cast<LPARAM>(largeIcon.Get()));
    smallIcon_ = std::move(smallIcon);
    largeIcon_ = std::move(largeIcon);
}

void MainWindow::PlaceList() {
    RECT client;
    GetClientRect(hwnd, &client);
    SendMessageW(bar_.hwnd, TB_AUTOSIZE, 0, 0);
    // The list's border is pushed one pixel out of sight on three sides.
    const int top = bar_.Bottom();
    SetWindowPos(list_.hwnd, nullptr, -1, top, client.right + 2, client.bottom - top + 1,
                 SWP_NOZORDER | SWP_NOACTIVATE);
    list_.FillWidth();
    InvalidateRect(list_.hwnd, nullptr, FALSE); // the text of an empty list moves
}

/// The keys are the list's: those of dialogs and menus are theirs.
bool MainWindow::PreTranslate(MSG& message) {
    if (message.hwnd != list_.hwnd)
        return false;
    const bool isDone = TranslateAcceleratorW(hwnd, accelerators_, &message) != 0;
    if (message.message >= WM_KEYFIRST && message.message <= WM_KEYLAST)
        isHelpGiven_ = isDone && message.message == WM_KEYDOWN && message.wParam == VK_F1;
    return isDone;
}

LRESULT MainWindow::OnMessage(BMessage& message) {
    if (occasions_.HasCome(message)) // what clients have written is on the disk when this returns
        server_.DismountAll(RequestServer::kSenderPatience);
    switch (message.message) {
    case WM_CLOSE:
        OnClose();
        return 0;
    case WM_DESTROY:
        OnDestroy();
        break;
    case WM_SIZE:
        if (message.wParam != SIZE_MINIMIZED && list_.hwnd)
            PlaceList();
        break;
    case WM_ACTIVATE:
        BWindow::OnMessage(message);
        if (LOWORD(message.wParam) != WA_INACTIVE && HIWORD(message.wParam) == 0)
            SetFocus(list_.hwnd); // also when there was no focus to come back to
        return 0;
    case WM_SETFOCUS:
        SetFocus(list_.hwnd);
        return 0;
    case WM_ENTERMENULOOP:
    case WM_EXITMENULOOP:
        isMenuOpen_ = message.message == WM_ENTERMENULOOP;
        break;
    case WM_SYSCOLORCHANGE:
        SendMessageW(bar_.hwnd, message.message, message.wParam, message.lParam);
        SendMessageW(list_.hwnd, message.message, message.wParam, message.lParam);
        break;
    case WM_HELP:
        if (std::exchange(isHelpGiven_, false)) // some systems send this for F1 besides the key
            return TRUE;
        SendMessageW(hwnd, WM_COMMAND, IDM_CONTENTS, 0);
        return TRUE;
    case WM_LISTMENU:
        OpenListMenu(
            {static_cast<short>(LOWORD(message.lParam)), static_cast<short>(HIWORD(message.lParam))});
        return 0;
    case WM_SHOWERRORS:
        OnShowErrors();
        return 0;
    case WM_DETACHED:
        OnDetached();
        return 0;
    case WM_TRAYICON:
        OnTrayMessage(message.lParam);
        return 0;
    case WM_REQUEST:
        return OnRequest();
    default:
        if (message.message == shellStarted_ && shellStarted_ != 0)
            icon_.Add(hwnd);
        break;
    }
    LRESULT result = 0;
    return OnEditionMessage(message, result) ? result : BWindow::OnMessage(message);
}

bool MainWindow::IsOccupied() const {
    return FindOpenDialog() || isMenuOpen_ || HasNotedErrors() || server_.IsServing() ||
           RequestChannel::IsSending();
}

/// The loop of a dialog would end with the program's WM_QUIT, and the program would go on; and whoever works
/// on a row, or waits in an exchange, would find the rows gone. So closing waits.
void MainWindow::OnClose() {
    if (isClosing_)
        return;
    if (IsOccupied()) {
        isClosePutOff_ = true;
        SetForegroundWindow(FindOpenDialog());
        SendMessageW(hwnd, WM_CANCELMODE, 0, 0); // ends a menu
        return;
    }
    if (server_.MayClose()) {
        // Messages that other processes send come through while the window is destroyed.
        isClosing_ = true;
        ce::EventModify(services_.instanceEvent.Get(), ce::EVENT_RESET);
        Close();
        return;
    }
    const bool wasVisible = IsWindowVisible(hwnd) != FALSE;
    if (!wasVisible) // never shown, it was started for what is mounted, and ends with it
        endsWithVolumes_ = true;
    ShowWindow(hwnd, SW_HIDE);
    if (wasVisible && !hasToldOfHiding_) {
        hasToldOfHiding_ = true;
        icon_.ShowNotice(kMainWindowTitle, L"Volumes stay mounted. Double-click here to see them again.",
                         NIIF_INFO);
    }
}

/// Asks for the close that had to wait, once nothing stands in its way any more.
void MainWindow::CloseIfWanted() {
    const bool isWanted = isClosePutOff_ || (endsWithVolumes_ && server_.MayClose());
    if (!isWanted || IsOccupied())
        return;
    isClosePutOff_ = endsWithVolumes_ = false;
    PostMessageW(hwnd, WM_CLOSE, 0, 0);
}

/// The end of a dialog that is on its way would end a box, too: then the errors wait until the program is
/// idle.
void MainWindow::OnShowErrors() {
    MSG end;
    if (!PeekMessageW(&end, nullptr, WM_QUIT, WM_QUIT, PM_NOREMOVE))
        ShowNotedErrors();
}

void MainWindow::OnIdle() {
    TidyAfterRequests();
    ShowNotedErrors();
    FinishDriveSteps();
    icon_.ShowMounted(CountMounted(list_));
    CloseIfWanted();
}

void MainWindow::OnDestroy() {
    SetErrorAnnouncer(nullptr, nullptr);
    SaveSettings();
    occasions_.End();
    icon_.Remove();
    ClearRows(list_);
    PostQuitMessage(0);
}

void MainWindow::OnTrayMessage(LPARAM mouseMessage) {
    if (isClosing_)
        return;
    if (mouseMessage == WM_LBUTTONDBLCLK)
        ShowFromTray();
    else if (mouseMessage == WM_RBUTTONUP)
        OpenTrayMenu();
}

void MainWindow::OnDetached() {
    if (!server_.IsServing()) // from outside, in the middle of a request: the real one comes later
        server_.FinishDismounts();
}

LRESULT MainWindow::OnRequest() {
    if (isClosing_)
        return 0; // the sender starts over when this instance has ended
    const LRESULT result = server_.Serve();
    hasServed_ = true;
    TidyAfterRequests();
    CloseIfWanted();
    return result;
}

/// The senders have their replies; the user's list keeps the key paths that requests leave out. A request
/// that comes in the middle of other work leaves this to whoever is first afterwards.
void MainWindow::TidyAfterRequests() {
    if (server_.IsServing() || !std::exchange(hasServed_, false))
        return;
    for (int row = ListView_GetItemCount(list_.hwnd) - 1; row >= 0; --row)
        RecallKeyPath(list_, row);
    list_.Sort();
}

void MainWindow::OnVolumeDismounted(const VolumeRecord& record, DismountReason reason,
                                    const StopReport& report) {
    const bool isHarmless = report.flushed && report.clientsCutOff == 0;
    if (reason == DismountReason::User && isHarmless)
        return;
    const wchar_t* const cause = reason == DismountReason::Timeout
                                     ? L" was dismounted because it had not been used for its time-out."
                                     : L" was dismounted.";
    const wchar_t* const cutOff =
        report.clientsCutOff > 0 ? L" Programs that were connected to it have been cut off." : L"";
    const wchar_t* const loss =
        report.flushed ? L"" : L" Not all that was written has reached its data file.";
    wchar_t text[256]; // what a notice takes
    FormatText(text, L"%.70ls%ls%ls%ls", FileNameIn(record.Path).data(), cause, cutOff, loss);
    icon_.ShowNotice(kMainWindowTitle, text, isHarmless ? NIIF_INFO : NIIF_WARNING);
}

} // namespace quilla
