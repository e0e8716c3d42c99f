#include "ui/volume_dialogs.h"

#include "desktop/full_path.h"
#include "platform/wipe.h"
#include "ui/dialog_support.h"
#include "ui/dialog_values.h"
#include "ui/resource.h"
#include "ui/secret_edit.h"

#include <commctrl.h>

namespace quilla {

namespace {

constexpr int kRepeatTop = 74; // dialog units

} // namespace

void NewVolumeDialog::Attach(HWND handle) {
    record->Path[0] = 0;
    record->Size = kDefaultVolumeSize;
    record->KeyPath[0] = 0;
    record->Cipher = CipherId::Cast128;
    record->Timeout = kDefaultTimeout;
    record->Flags = 0;
    record->DeviceHandle = 0;
    VolumeDialog::Attach(handle);
    SetCaption(IDS_NEW);
    ShowRepeat();
}

/// Handhelds have no such row.
void NewVolumeDialog::ShowRepeat() {
    repeatEdit_.Attach(GetDlgItem(hwnd, IDC_REPEAT));
    if (!repeatEdit_.hwnd)
        return;
    InsertDialogRow(hwnd, kRepeatTop);
    ShowWindow(GetDlgItem(hwnd, IDC_REPEAT_LABEL), SW_SHOWNA);
    ShowWindow(repeatEdit_.hwnd, SW_SHOWNA);
    PrepareSecretEdit(repeatEdit_.hwnd);
}

LRESULT NewVolumeDialog::OnMessage(BMessage& message) {
    if (message.message == WM_DESTROY && repeatEdit_.hwnd)
        WipeSecretEdit(repeatEdit_.hwnd);
    return VolumeDialog::OnMessage(message);
}

bool NewVolumeDialog::IsPasswordConfirmed() {
    if (repeatEdit_.hwnd && !HaveSameText(passwordEdit.hwnd, repeatEdit_.hwnd)) {
        RejectInput(hwnd, repeatEdit_.hwnd, L"The two passwords differ");
        return false;
    }
    return GetWindowTextLengthW(passwordEdit.hwnd) > 0 || ConfirmEmptyPassword(hwnd);
}

void NewVolumeDialog::OnOk() {
    volumeField.GetName(work.Path);
    CompletePath(work.Path);
    const auto size = static_cast<std::int16_t>(SendMessageW(sizeUpDown.hwnd, UDM_GETPOS32, 0, 0));
    work.Size = SizeFromShown(size, static_cast<int>(SendMessageW(unitCombo.hwnd, CB_GETCURSEL, 0, 0)));
    work.Cipher = CipherFromShown(static_cast<int>(SendMessageW(cipherCombo.hwnd, CB_GETCURSEL, 0, 0)));
    TakeTimeout();
    if (work.Cipher != CipherId::None && !IsPasswordConfirmed())
        return;
    Secret<PasswordDigest> passwordKey;
    if (work.Cipher != CipherId::None) {
        keyField.GetName(work.KeyPath);
        CompletePath(work.KeyPath);
        TakePasswordKey(passwordEdit.hwnd, *passwordKey);
    }
    watch_.Begin(work);
    services_.channel.SendCreateVolumeFile(work, *passwordKey);
    passwordKey.WipeNow();
    watch_.End(work);
    *record = work;
    Finish();
}

} // namespace quilla
