#include "ui/change_password_dialog.h"

#include "platform/error_box.h"
#include "platform/wipe.h"
#include "store/volume_password.h"
#include "ui/dialog_support.h"
#include "ui/resource.h"
#include "ui/secret_edit.h"

namespace quilla {

namespace {

#ifndef UNDER_CE
constexpr ControlLayout kLayout[] = {
    {IDC_OLD_PASSWORD, Follow::Stretch},
    {IDC_NEW_PASSWORD, Follow::Stretch},
    {IDC_CONFIRM_PASSWORD, Follow::Stretch},
    {IDOK, Follow::Move},
    {IDCANCEL, Follow::Move},
};
#endif

} // namespace

void ChangePasswordDialog::Attach(HWND handle) {
    BDialog::Attach(handle);
#ifndef UNDER_CE
    FitDialogToDesktop(hwnd, kDesktopExtraWidth, kLayout);
#endif
    oldEdit.Attach(GetDlgItem(hwnd, IDC_OLD_PASSWORD));
    newEdit.Attach(GetDlgItem(hwnd, IDC_NEW_PASSWORD));
    confirmEdit.Attach(GetDlgItem(hwnd, IDC_CONFIRM_PASSWORD));
    for (const BEdit* const edit : {&oldEdit, &newEdit, &confirmEdit})
        PrepareSecretEdit(edit->hwnd);
}

LRESULT ChangePasswordDialog::OnMessage(BMessage& message) {
    if (message.message == WM_DESTROY)
        for (const BEdit* const edit : {&oldEdit, &newEdit, &confirmEdit})
            WipeSecretEdit(edit->hwnd);
    return BDialog::OnMessage(message);
}

LRESULT ChangePasswordDialog::OnCommand(int id, int code, HWND control) {
    if (id != IDOK)
        return BDialog::OnCommand(id, code, control);
    OnOk();
    return 0;
}

void ChangePasswordDialog::OnOk() {
    Secret<PasswordDigest> passwordKey;
    Secret<KeyBlock> block;
    TakePasswordKey(oldEdit.hwnd, *passwordKey);
    if (!OpenVolumeKey(*record, *passwordKey, *block)) {
        block.WipeNow(); // not while the message is open
        RejectInput(hwnd, oldEdit.hwnd, L"Incorrect old password");
        return;
    }
    if (!HaveSameText(newEdit.hwnd, confirmEdit.hwnd)) {
        block.WipeNow();
        RejectInput(hwnd, newEdit.hwnd, L"Incorrect new password");
        return;
    }
    if (GetWindowTextLengthW(newEdit.hwnd) == 0) {
        block.WipeNow();
        if (!ConfirmEmptyPassword(hwnd))
            return;
        TakePasswordKey(oldEdit.hwnd, *passwordKey);
        if (!OpenVolumeKey(*record, *passwordKey, *block)) // as it did before the question
            return;
    }
    TakePasswordKey(newEdit.hwnd, *passwordKey);
    StoreVolumeKey(*record, *passwordKey, *block);
    ShowNotedErrors();
    EndDialog(IDOK);
}

} // namespace quilla
