// The main window on a handheld: as large as the screen, without a place to keep or a pointer to drag with.

#include "ui/main_window.h"

namespace quilla {

const LONG MainWindow::kWindowStyle = 0;

void MainWindow::RestoreSettings() {
    list_.Apply(WindowSettings());
}

void MainWindow::SaveSettings() const {}

bool MainWindow::OnEditionMessage(const BMessage& /*message*/, LRESULT& /*result*/) {
    return false;
}

void MainWindow::ComeToFront() {
    SetWindowPos(hwnd, nullptr, 0, 0, 0, 0,
                 SWP_SHOWWINDOW | SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE | SWP_NOZORDER);
    // There a handle with its lowest bit set brings the window's whole family to the front.
    SetForegroundWindow(reinterpret_cast<HWND>(reinterpret_cast<ULONG_PTR>(hwnd) | 1));
}

/// A device is the system's there and has no address.
void MainWindow::CopyAddress() {}

void MainWindow::OpenTrayMenu() {}

/// Every mounted volume is a storage card there.
void MainWindow::AttachDrive() {}

void MainWindow::DetachDrive() {}

void MainWindow::ToggleAttachAfterMounting() {}

void MainWindow::OnVolumeMounted(const VolumeRecord& /*record*/) {}

bool MainWindow::DetachFirst(const VolumeRecord& /*record*/) {
    return false;
}

void MainWindow::FinishDriveSteps() {}

VolumeDrives::~VolumeDrives() = default;

void MainWindow::CompleteMenu(HMENU /*menu*/, int /*menuId*/, int /*defaultCommand*/) {}

} // namespace quilla
