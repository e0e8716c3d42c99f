#include "ui/mount_dialog.h"

#include "platform/error_box.h"
#include "platform/win32/format_text.h"
#include "platform/wipe.h"
#include "store/volume_files.h"
#include "store/volume_password.h"
#include "ui/dialog_message.h"
#include "ui/resource.h"
#include "ui/secret_edit.h"

namespace quilla {

namespace {

bool ConfirmMissingKeyFile(HWND dialog, const wchar_t* keyPath) {
    wchar_t question[kPathUnits + 256];
    FormatText(
        question,
        L"The key file\n\n%ls\n\nis missing. If the volume is encrypted, it shows nothing but meaningless "
        L"data without it, and formatting it would destroy what it holds.\n\nMount it without a key file?",
        keyPath);
    return MessageBoxW(dialog, question, L"Quilla Tarn", MB_YESNO | MB_ICONWARNING | MB_DEFBUTTON2) == IDYES;
}

} // namespace

void MountDialog::Attach(HWND handle) {
    VolumeDialog::Attach(handle);
    SetCaption(IDS_MOUNT);
    LockFixedFields();
    BProbeState password(IDC_PASSWORD);
    RouteUpdateCommand(password);
    if (password.enabled)
        SetFocus(passwordEdit.hwnd);
}

/// Reads the key file that is named now: it decides whether a password is needed. Without the key file that a
/// volume should have its clients would meet enciphered data, and offer to format it.
bool MountDialog::IsKeyFileUsable() {
    keyField.GetName(work.KeyPath);
    VolumeRecord seen = work;
    const KeyFileState state = ReadVolumeInfo(seen);
    if (state == KeyFileState::Unreadable) {
        ReportUnreadableKeyFile(work.KeyPath);
        return false;
    }
    if (state == KeyFileState::Missing && work.Cipher == CipherId::None)
        return ConfirmMissingKeyFile(hwnd, work.KeyPath);
    const bool needsPassword = state == KeyFileState::Readable && work.Cipher != seen.Cipher;
    if (!needsPassword)
        return true;
    work.Cipher = seen.Cipher;
    ChooseCipher(work.Cipher);
    if (work.Cipher == CipherId::None)
        return true;
    SetFocus(passwordEdit.hwnd);
    return GetWindowTextLengthW(passwordEdit.hwnd) > 0;
}

void MountDialog::OnOk() {
    if (!IsKeyFileUsable())
        return;
    if (work.Cipher != CipherId::None) {
        Secret<PasswordDigest> passwordKey;
        TakePasswordKey(passwordEdit.hwnd, *passwordKey);
        if (!UnlockVolume(work, *passwordKey)) {
            ShowDialogError(hwnd, L"Incorrect password");
            AskAgain(hwnd, passwordEdit.hwnd);
            return;
        }
    }
    TakeTimeout();
    services.channel.SendMountVolume(work);
    Wipe(work.Key);
    {
        const ErrorHold hold;
        UpdateTimeout(work);
    }
    Finish();
}

} // namespace quilla
