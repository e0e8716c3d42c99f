// Mounted volumes as drives of the system: commands, and what comes of them.

#include "platform/error_box.h"
#include "platform/win32/format_text.h"
#include "service/driver_control.h"
#include "service/window_messages.h"
#include "ui/desktop/attach_by_hand_dialog.h"
#include "ui/dialog_support.h"
#include "ui/file_name.h"
#include "ui/main_window.h"
#include "ui/resource.h"

#include <shellapi.h>

namespace quilla {

namespace {

/// The row of a mounted device; -1 if it is not mounted any more.
int RowOfDevice(const BListView& list, std::uint32_t device) {
    for (int row = ListView_GetItemCount(list.hwnd) - 1; row >= 0; --row)
        if (RecordAt(list, row).DeviceHandle == device)
            return row;
    return -1;
}

} // namespace

void MainWindow::StartDriveStep(const VolumeRecord& record, DriveStep step, bool isAskedFor, bool dismounts) {
    if (drives_.Start(hwnd, record, step, isAskedFor, dismounts))
        ShowDrive(record.DeviceHandle,
                  step == DriveStep::Attach ? DriveState::Attaching : DriveState::Detaching, nullptr);
}

/// Says in a mounted volume's row what the system has made of it.
void MainWindow::ShowDrive(std::uint32_t device, DriveState state, const wchar_t* letters) {
    const int row = RowOfDevice(list_, device);
    if (row < 0)
        return;
    ListedVolume& listed = ListedAt(list_, row);
    listed.drive = state;
    if (letters)
        CopyText(listed.driveLetters, letters);
    UpdateVolumeRow(list_, row, listed.record);
}

void MainWindow::AttachDrive() {
    const VolumeRecord& record = *SelectedVolume();
    if (VolumeDrives::CanAttach())
        StartDriveStep(record, DriveStep::Attach, true, false);
    else
        ShowAttachByHand(record);
}

void MainWindow::ShowAttachByHand(const VolumeRecord& record) const {
    AttachByHandDialog dialog(record);
    dialog.DoModal(hwnd, MAKEINTRESOURCEW(IDD_ATTACH_BY_HAND));
}

void MainWindow::DetachDrive() {
    StartDriveStep(*SelectedVolume(), DriveStep::Detach, true, false);
}

void MainWindow::ToggleAttachAfterMounting() {
    VolumeDrives::SetAttachesAfterMounting(!VolumeDrives::AttachesAfterMounting());
}

void MainWindow::OnVolumeMounted(const VolumeRecord& record) {
    if (VolumeDrives::AttachesAfterMounting() && VolumeDrives::CanAttach())
        StartDriveStep(record, DriveStep::Attach, false, false);
}

bool MainWindow::DetachFirst(const VolumeRecord& record) {
    const int row = RowOfDevice(list_, record.DeviceHandle);
    if (row < 0 || ListedAt(list_, row).drive != DriveState::Attached)
        return false;
    StartDriveStep(record, DriveStep::Detach, true, true);
    return true;
}

void MainWindow::FinishDriveSteps() {
    // What a dialog is about must stay as it is: this is called again when it is over.
    while (!server_.IsServing() && !FindOpenDialog()) {
        const std::unique_ptr<DriveRun> run = drives_.TakeOver();
        if (!run)
            return;
        const int row = RowOfDevice(list_, run->device);
        if (row >= 0)
            FinishDriveStep(*run, FileNameIn(RecordAt(list_, row).Path).data());
    }
}

/// The name of the volume's file may go with its row while a box is open.
void MainWindow::FinishDriveStep(const DriveRun& run, const wchar_t* volume) {
    const bool isDone = run.result == DriveResult::Done;
    const bool attached = isDone == (run.step == DriveStep::Attach);
    wchar_t text[DriveRun::kTextUnits + 160];
    if (isDone && attached) {
        FormatText(
            text,
            run.text[0]
                ? L"%.70ls is drive %ls now."
                : L"%.70ls is attached. Windows initialises and formats a new disk in Disk Management.",
            volume, run.text);
        icon_.ShowNotice(kMainWindowTitle, text, NIIF_INFO);
    }
    ShowDrive(run.device, attached ? DriveState::Attached : DriveState::None, isDone ? run.text : nullptr);
    if (isDone && !run.dismounts)
        return;
    if (run.dismounts)
        DismountDetached(run);
    else if (run.result == DriveResult::Refused)
        ShowError(run.text);
    else if (run.result == DriveResult::NoWay && run.isAskedFor)
        ShowAttachByHand(RecordAt(list_, RowOfDevice(list_, run.device)));
}

/// The second half of a dismount. When the system has not let go of the drive, the user decides.
void MainWindow::DismountDetached(const DriveRun& run) {
    const bool isDone = run.result == DriveResult::Done;
    if (!isDone) {
        wchar_t question[DriveRun::kTextUnits + 160];
        FormatText(question, L"%ls\n\nDismount all the same? What has not been written yet is lost.",
                   run.text[0] ? run.text : L"The drive is still attached.");
        if (MessageBoxW(hwnd, question, L"Confirm Dismount",
                        MB_OKCANCEL | MB_ICONEXCLAMATION | MB_DEFBUTTON2) != IDOK)
            return;
    }
    int row = RowOfDevice(list_, run.device);
    if (isDone && row >= 0 && !ConfirmCutOff(RecordAt(list_, row)))
        return;
    row = RowOfDevice(list_, run.device); // still, after the questions
    if (row >= 0)
        server_.Dismount(RecordAt(list_, row));
}

} // namespace quilla
