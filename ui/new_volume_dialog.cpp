#include "ui/volume_dialogs.h"

#include "desktop/full_path.h"
#include "platform/error_box.h"
#include "platform/wipe.h"
#include "store/volume_files.h"
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
    SendDlgItemMessageW(hwnd, IDC_STRENGTH, BM_SETCHECK, BST_CHECKED, 0);
    tip_.Show(hwnd);
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

/// Chooses a salt and turns the password key into the wrapping key, which then travels in its place. The
/// dialog stays open if that fails or is ended.
bool NewVolumeDialog::MakeStrong(PasswordDigest& passwordKey, KeyStrength& strength) {
    const ErrorHold hold; // the key is wiped before a box opens
    const KeyFileStatus status = MakeWrappingKey(passwordKey, strength, kDefaultArgon2Cost, wait_);
    if (status != KeyFileStatus::Done)
        Wipe(passwordKey);
    return ReportKeyFile(status, work.KeyPath);
}

/// Without its salt the new key file would never open.
void NewVolumeDialog::KeepStrength(const KeyStrength& strength) {
    if (!watch_.IsVolumeMade() || !watch_.IsKeyFileMade())
        return;
    const KeyFileStatus status = AppendKeyStrength(work.KeyPath, strength);
    if (status == KeyFileStatus::Done)
        return;
    const ErrorHold hold;
    ReportKeyFile(status, work.KeyPath);
    watch_.TakeBack(work);
}

void NewVolumeDialog::OnOk() {
    volumeField.GetName(work.Path);
    CompletePath(work.Path);
    std::int16_t size = 0;
    if (!TakeNumber(sizeEdit, sizeUpDown, size) || !TakeTimeout())
        return;
    work.Size = SizeFromShown(size, static_cast<int>(SendMessageW(unitCombo.hwnd, CB_GETCURSEL, 0, 0)));
    work.Cipher = CipherFromShown(static_cast<int>(SendMessageW(cipherCombo.hwnd, CB_GETCURSEL, 0, 0)));
    if (work.Cipher != CipherId::None && !IsPasswordConfirmed())
        return;
    Secret<PasswordDigest> passwordKey;
    if (work.Cipher != CipherId::None) {
        keyField.GetName(work.KeyPath);
        CompletePath(work.KeyPath);
        TakePasswordKey(passwordEdit.hwnd, *passwordKey);
    }
    KeyStrength strength{};
    const bool isStrong = work.Cipher != CipherId::None &&
                          SendDlgItemMessageW(hwnd, IDC_STRENGTH, BM_GETCHECK, 0, 0) == BST_CHECKED;
    if (isStrong && !MakeStrong(*passwordKey, strength)) {
        ShowNotedErrors();
        return;
    }
    watch_.Begin(work);
    services_.channel.SendCreateVolumeFile(work, *passwordKey);
    passwordKey.WipeNow();
    watch_.End(work);
    if (isStrong)
        KeepStrength(strength);
    *record = work;
    Finish();
}

} // namespace quilla
