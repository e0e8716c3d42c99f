#include "ui/change_password_dialog.h"

#include "platform/error_box.h"
#include "platform/wipe.h"
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
    tip_.Show(hwnd, strength ? CostOf(*strength) : kDefaultArgon2Cost);
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

/// Says so if the old password is wrong, or could not be tried.
bool ChangePasswordDialog::IsAccepted(bool isRight, const KeyAttempt& attempt) {
    if (!isRight && attempt.status != KeyFileStatus::Stopped)
        RejectInput(hwnd, oldEdit.hwnd, attempt.IsUntried() ? nullptr : L"Incorrect old password");
    return isRight;
}

bool ChangePasswordDialog::IsOldPasswordRight() {
    KeyAttempt attempt{.strengthener = wait_};
    bool isRight = false;
    {
        Secret<PasswordDigest> key;
        Secret<KeyBlock> block;
        TakePasswordKey(oldEdit.hwnd, *key);
        isRight = OpenVolumeKey(*record, *key, *block, &attempt);
    }
    return IsAccepted(isRight, attempt);
}

/// What is wrong with the old password comes before what is wrong with the new one.
bool ChangePasswordDialog::IsNewPasswordUsable() {
    const bool isConfirmed = HaveSameText(newEdit.hwnd, confirmEdit.hwnd);
    if (isConfirmed && GetWindowTextLengthW(newEdit.hwnd) > 0)
        return true;
    if (!IsOldPasswordRight())
        return false;
    if (isConfirmed)
        return ConfirmEmptyPassword(hwnd);
    RejectInput(hwnd, newEdit.hwnd, L"Incorrect new password");
    return false;
}

/// Checks the old password, then seals the key block under the new one. A password that is refused leaves the
/// dialog open and the file as it was.
void ChangePasswordDialog::ChangePassword() {
    if (!IsNewPasswordUsable())
        return;
    KeyAttempt attempt{.strengthener = wait_};
    bool isRight = false;
    {
        Secret<PasswordDigest> from;
        Secret<PasswordDigest> to;
        TakePasswordKey(oldEdit.hwnd, *from);
        TakePasswordKey(newEdit.hwnd, *to);
        const bool isStrong = SendDlgItemMessageW(hwnd, IDC_STRENGTH, BM_GETCHECK, 0, 0) == BST_CHECKED;
        isRight = ChangeVolumePassword(*record, {.from = *from, .to = *to, .isStrong = isStrong}, attempt);
    }
    if (!IsAccepted(isRight, attempt))
        return;
    ShowNotedErrors();
    EndDialog(IDOK);
}

} // namespace quilla
