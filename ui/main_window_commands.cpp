// The commands of the main window and the pop-up menus that offer them.

#include "platform/error_box.h"
#include "platform/win32/format_text.h"
#include "service/driver_control.h"
#include "service/window_messages.h"
#include "store/default_key_path.h"
#include "store/registry_store.h"
#include "ui/about_dialog.h"
#include "ui/change_password_dialog.h"
#include "ui/dialog_support.h"
#include "ui/help.h"
#include "ui/main_window.h"
#include "ui/menu_shortcuts.h"
#include "ui/resource.h"
#include "ui/volume_dialogs.h"

#include <algorithm>
#include <iterator>

namespace quilla {

/// When a command is enabled.
enum class MainWindow::Rule : unsigned char { Always, AnyVolume, UnmountedVolume, MountedVolume, AnyMounted };

struct MainWindow::Command {
    int id;
    void (MainWindow::*perform)();
    Rule rule;
    bool needsRows; ///< whether it works on the selected row or changes the rows
};

const MainWindow::Command MainWindow::kCommands[] = {
    {IDM_NEW, &MainWindow::New, Rule::Always, true},
    {IDM_OPEN, &MainWindow::Open, Rule::Always, true},
    {IDM_CLOSE, &MainWindow::CloseSelected, Rule::UnmountedVolume, true},
    {IDM_DELETE, &MainWindow::DeleteSelected, Rule::UnmountedVolume, true},
    {IDM_EXIT, &MainWindow::Exit, Rule::Always, false},
    {IDM_MOUNT, &MainWindow::Mount, Rule::UnmountedVolume, true},
    {IDM_DISMOUNT, &MainWindow::Dismount, Rule::MountedVolume, true},
    {IDM_CHANGE_PASSWORD, &MainWindow::OpenChangePassword, Rule::AnyVolume, true},
    {IDM_PROPERTIES, &MainWindow::EditProperties, Rule::AnyVolume, true},
    {IDM_CONTENTS, &MainWindow::ShowContents, Rule::Always, false},
    {IDM_ABOUT, &MainWindow::ShowAbout, Rule::Always, false},
    {IDM_COPY_ADDRESS, &MainWindow::CopyAddress, Rule::MountedVolume, true},
    {IDM_ATTACH_DRIVE, &MainWindow::AttachDrive, Rule::MountedVolume, true},
    {IDM_DETACH_DRIVE, &MainWindow::DetachDrive, Rule::MountedVolume, true},
    {IDM_ATTACH_AFTER_MOUNTING, &MainWindow::ToggleAttachAfterMounting, Rule::Always, false},
    {IDM_SHOW_WINDOW, &MainWindow::ShowFromTray, Rule::Always, false},
    {IDM_DISMOUNT_ALL, &MainWindow::DismountAll, Rule::AnyMounted, false},
    {IDM_DISMOUNT_EXIT, &MainWindow::DismountAllAndExit, Rule::Always, false},
    {IDM_REFRESH, &MainWindow::Refresh, Rule::Always, true},
};

const MainWindow::Command* MainWindow::FindCommand(int id) {
    for (const Command& command : kCommands)
        if (command.id == id)
            return &command;
    return nullptr;
}

LRESULT MainWindow::OnCommand(int id, int code, HWND control) {
    const Command* const command = FindCommand(id);
    if (!command && occasions_.OnCommand(id))
        return 0;
    if (!command)
        return BWindow::OnCommand(id, code, control);
    if (isClosing_)
        return 0;
    if (server_.IsServing() || RequestChannel::IsSending()) { // from outside, in the middle: it comes again
        PostMessageW(hwnd, WM_COMMAND, static_cast<WPARAM>(id), 0);
        return 0;
    }
    if (command->needsRows && FindOpenDialog()) // what the dialog is about must stay as it is
        return 0;
    TidyAfterRequests();
    (this->*command->perform)();
    CloseIfWanted(); // a command that was sent from outside leaves the program as idle as it was
    return 0;
}

void MainWindow::OnUpdateCommand(BCommandState& state) {
    const Command* const command = FindCommand(state.id);
    if (!command) {
        if (!occasions_.OnUpdateCommand(state))
            BWindow::OnUpdateCommand(state);
        return;
    }
    const VolumeRecord* const volume = SelectedVolume();
    switch (command->rule) {
    case Rule::Always:
        state.Enable(true);
        break;
    case Rule::AnyVolume:
        state.Enable(volume != nullptr);
        break;
    case Rule::UnmountedVolume:
        state.Enable(volume && !volume->IsMounted());
        break;
    case Rule::MountedVolume:
        state.Enable(volume && volume->IsMounted());
        break;
    case Rule::AnyMounted:
        state.Enable(AnyVolumeMounted(list_));
        break;
    }
}

VolumeRecord* MainWindow::SelectedVolume() const {
    return ListView_GetSelectedCount(list_.hwnd) == 1 ? &RecordAt(list_, SelectedRow(list_)) : nullptr;
}

void MainWindow::UpdateVolume(VolumeRecord& record) {
    // Requests served while a dialog was open may have moved the row.
    const int row = RowOf(list_, record);
    RememberKeyPath(list_, row);
    UpdateVolumeRow(list_, row, record);
    list_.Sort();
}

void MainWindow::RemoveVolume(const VolumeRecord& record) {
    const int row = RowOf(list_, record);
    RemoveRow(list_, row);
    list_.SelectRow(std::min(row, ListView_GetItemCount(list_.hwnd) - 1));
    SaveVolumeList(list_);
}

void MainWindow::New() {
    VolumeRecord record{};
    NewVolumeDialog dialog(record, services_);
    if (dialog.DoModal(hwnd, MAKEINTRESOURCEW(IDD_VOLUME)) != IDOK)
        return;
    if (!dialog.Creation().IsVolumeMade()) {
        list_.SelectRow(FindRow(list_, record.Path));
        dialog.Creation().ShowFailure(record);
        return;
    }
    const int row = FindVolume(list_, record.Path, record.KeyPath);
    if (row < 0) // out of memory
        return;
    RecordAt(list_, row).Timeout = record.Timeout; // without a key file there is none to read it from
    list_.SelectRow(row);
    list_.Sort();
    SaveVolumeList(list_);
}

void MainWindow::Open() {
    services_.picker.SetFilter(kVolumeFilter);
    if (services_.picker.Open(hwnd))
        OpenVolume(services_.picker.FileName());
}

void MainWindow::OpenVolume(const wchar_t* path) {
    PathText keyPath;
    DefaultKeyPath(path, keyPath);
    const int row = FindVolume(list_, path, keyPath);
    if (row < 0)
        return;
    RecallKeyPath(list_, row);
    list_.SelectRow(row);
    list_.Sort();
    SaveVolumeList(list_);
}

void MainWindow::CloseSelected() {
    RemoveVolume(*SelectedVolume());
}

void MainWindow::DeleteSelected() {
    VolumeRecord& record = *SelectedVolume();
    wchar_t question[2 * kPathUnits + 80];
    FormatText(question, L"Are you sure you want to delete\n\n%ls\n%ls\n\nand all the data inside?",
               record.Path, record.KeyPath);
    if (MessageBoxW(hwnd, question, L"Confirm Delete", MB_OKCANCEL | MB_ICONEXCLAMATION | MB_DEFBUTTON2) !=
        IDOK)
        return;
    VolumeRecord sent = record; // what comes back is as old as this
    if (!record.IsMounted())
        services_.channel.SendDeleteVolumeFiles(sent);
    // By another process, while the question was open or the request waited for its turn.
    if (CheckResult(!record.IsMounted(), L"The volume has been mounted and cannot be deleted"))
        RemoveVolume(record);
}

void MainWindow::Exit() {
    SendMessageW(hwnd, WM_CLOSE, 0, 0);
}

void MainWindow::Mount() {
    VolumeRecord& record = *SelectedVolume();
    MountDialog dialog(record, services_);
    if (dialog.DoModal(hwnd, MAKEINTRESOURCEW(IDD_VOLUME)) != IDOK || !record.IsMounted())
        return; // else the server has brought the row up to date
    wchar_t text[160];
    FormatText(text, L"Mounted as %.6ls. Volume > Copy Address gives NBD clients its address.",
               record.DeviceName);
    icon_.ShowNotice(kMainWindowTitle, text, NIIF_INFO);
}

void MainWindow::Dismount() {
    const VolumeRecord& record = *SelectedVolume();
    if (DetachFirst(record))
        return;
    if (!ConfirmCutOff(record))
        return;
    if (SelectedVolume() == &record && record.IsMounted()) // still, after the question
        server_.DismountSelected();
}

void MainWindow::OpenChangePassword() {
    ChangePasswordDialog dialog(*SelectedVolume());
    dialog.DoModal(hwnd, MAKEINTRESOURCEW(IDD_CHANGE_PASSWORD));
}

void MainWindow::EditProperties() {
    VolumeRecord& record = *SelectedVolume();
    PropertiesDialog dialog(record, services_);
    if (dialog.DoModal(hwnd, MAKEINTRESOURCEW(IDD_VOLUME)) == IDOK)
        UpdateVolume(record);
}

void MainWindow::ShowContents() {
    OpenHelp(hwnd);
}

void MainWindow::ShowAbout() {
    AboutDialog dialog;
    dialog.DoModal(hwnd, MAKEINTRESOURCEW(IDD_ABOUT));
}

void MainWindow::ShowFromTray() {
    isClosePutOff_ = endsWithVolumes_ = false; // the user has the program before him now
    ComeToFront();
}

bool MainWindow::ConfirmCutOff(const VolumeRecord& record) const {
    const unsigned clients = DriverControl::CountClients(record);
    if (clients == 0)
        return true;
    wchar_t who[512];
    DriverControl::DescribeClients(record, who);
    wchar_t question[std::size(who) + 160];
    FormatText(question,
               L"%u %ls connected and would be cut off: what has not been written yet is lost.\n%ls%ls\n"
               L"Dismount all the same?",
               clients, clients == 1 ? L"program is" : L"programs are", who, who[0] ? L"\n" : L"");
    return MessageBoxW(hwnd, question, L"Confirm Dismount",
                       MB_OKCANCEL | MB_ICONEXCLAMATION | MB_DEFBUTTON2) == IDOK;
}

void MainWindow::DismountAll() {
    bool areDrives = false;
    for (int row = ListView_GetItemCount(list_.hwnd) - 1; row >= 0; --row)
        areDrives |= RecordAt(list_, row).IsMounted() && DetachFirst(RecordAt(list_, row));
    if (!areDrives)
        server_.DismountAll();
    for (int row = ListView_GetItemCount(list_.hwnd) - 1; areDrives && row >= 0; --row)
        if (RecordAt(list_, row).IsMounted() && ListedAt(list_, row).drive == DriveState::None)
            server_.Dismount(RecordAt(list_, row));
}

void MainWindow::DismountAllAndExit() {
    DismountAll();
    endsWithVolumes_ = true; // as soon as the last one is gone
}

/// Reads the files of what is not mounted again.
void MainWindow::Refresh() {
    for (int row = ListView_GetItemCount(list_.hwnd) - 1; row >= 0; --row) {
        const ListedVolume& listed = ListedAt(list_, row);
        if (listed.record.IsMounted()) // its driver has the files
            continue;
        PathText keyPath;
        CopyText(keyPath, FieldText(listed.lastKeyPath));
        FindVolume(list_, listed.record.Path, keyPath);
        RecallKeyPath(list_, row);
    }
    list_.Sort();
}

void MainWindow::OpenListMenu(POINT screen) {
    if (SelectedRow(list_) < 0)
        TrackMenu(IDR_MENU_LIST, screen, 0);
    else
        TrackMenu(IDR_MENU_VOLUME, screen, 0);
}

void MainWindow::TrackMenu(int menuId, POINT screen, int defaultCommand) {
    const UniqueMenu bar(LoadMenuW(GetModuleHandleW(nullptr), MAKEINTRESOURCEW(menuId)));
    const HMENU menu = GetSubMenu(bar.Get(), 0);
    AddShortcutTexts(menu, accelerators_);
    CompleteMenu(menu, menuId, defaultCommand);
    TrackPopupMenuEx(menu, TPM_RIGHTBUTTON, screen.x, screen.y, hwnd, nullptr);
}

} // namespace quilla
