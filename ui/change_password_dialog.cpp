#include "ui/change_password_dialog.h"

#include "platform/error_box.h"
#include "platform/wipe.h"
#include "store/volume_password.h"
#include "ui/dialog_support.h"
#include "ui/resource.h"
#include "ui/secret_edit.h"

namespace quilla {

namespace {

constexpr ControlLayout kLayout[] = {
    {IDC_OLD_PASSWORD, Follow::Stretch},
    {IDC_NEW_PASSWORD, Follow::Stretch},
    {IDC_CONFIRM_PASSWORD, Follow::Stretch},
    {IDOK, Follow::Move},
    {IDCANCEL, Follow::Move},
};

} // namespace

void ChangePasswordDialog::Attach(HWND handle) {
    BDialog::Attach(handle);
    FitDialog(hwnd, kDesktopExtraWidth, kLayout);
    oldEdit.Attach(GetDlgItem(hwnd, IDC_OLD_PASSWORD));
    newEdit.Attach(GetDlgItem(hwnd, IDC_NEW_PASSWORD));
    confirmEdit.Attach(GetDlgItem(hwnd, IDC_CONFIRM_PASSWORD));
    for (const BEdit* const edit : {&oldEdit, &newEdit, &confirmEdit})
        PrepareSecretEdit(edit->hwnd);
    ShowStrength();
}

/// What cannot be read now is not to lose its strength by that.
void ChangePasswordDialog::ShowStrength() {
    std::optional<KeyStrength> strength;
    const bool isRead = LoadKeyStrength(record->KeyPath, strength) == KeyFileStatus::Done;
    SendDlgItemMessageW(hwnd, IDC_STRENGTH, BM_SETCHECK, strength || !isRead ? BST_CHECKED : BST_UNCHECKED,
                        0);
}

LRESULT ChangePasswordDialog::OnMessage(BMessage& message) {
    if (message.message == WM_DESTROY)
        for (const BEdit* const edit : {&oldEdit, &newEdit, &confirmEdit})
            WipeSecretEdit(edit->hwnd);
    return BDialog::OnMessage(message);
}

LRESULT ChangePasswordDialog::OnCommand(int id, int code, HWND control) {
    if (wait_.IsRunning() && id != IDCANCEL)
        return 0;
    if (id != IDOK)
        return BDialog::OnCommand(id, code, control);
    ChangePassword();
    return 0;
}

/// Opens the key block with the old password, and tells what the new one is to cost to guess.
bool ChangePasswordDialog::OpenKey(KeyBlock& block, std::optional<Argon2Cost>& cost) {
    Secret<PasswordDigest> passwordKey;
    TakePasswordKey(oldEdit.hwnd, *passwordKey);
    KeyAttempt attempt{.strengthener = wait_};
    if (OpenVolumeKey(*record, *passwordKey, block, &attempt)) {
        if (SendDlgItemMessageW(hwnd, IDC_STRENGTH, BM_GETCHECK, 0, 0) == BST_CHECKED)
            cost = attempt.strength ? CostOf(*attempt.strength) : kDefaultArgon2Cost;
        return true;
    }
    Wipe(block); // not while the message is open
    if (attempt.status != KeyFileStatus::Stopped)
        RejectInput(hwnd, oldEdit.hwnd, L"Incorrect old password");
    return false;
}

/// Checks the old password, then seals the key block under the new one. A password that is refused leaves the
/// dialog open and the file as it was.
void ChangePasswordDialog::ChangePassword() {
    Secret<PasswordDigest> passwordKey;
    Secret<KeyBlock> block;
    std::optional<Argon2Cost> cost;
    if (!OpenKey(*block, cost))
        return;
    if (!HaveSameText(newEdit.hwnd, confirmEdit.hwnd)) {
        block.WipeNow();
        RejectInput(hwnd, newEdit.hwnd, L"Incorrect new password");
        return;
    }
    if (GetWindowTextLengthW(newEdit.hwnd) == 0) {
        block.WipeNow();
        if (!ConfirmEmptyPassword(hwnd) || !OpenKey(*block, cost)) // as it did before the question
            return;
    }
    TakePasswordKey(newEdit.hwnd, *passwordKey);
    const KeyFileStatus status =
        StoreVolumeKey(*record, *passwordKey, *block, cost ? &*cost : nullptr, wait_);
    if (status == KeyFileStatus::Stopped)
        return;
    ShowNotedErrors();
    EndDialog(IDOK);
}

} // namespace quilla
