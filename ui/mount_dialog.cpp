#include "ui/mount_dialog.h"

#include "platform/wipe.h"
#include "store/volume_files.h"
#include "store/volume_password.h"
#include "ui/dialog_message.h"
#include "ui/resource.h"
#include "ui/secret_edit.h"

namespace quilla {

void MountDialog::Attach(HWND handle) {
    VolumeDialog::Attach(handle);
    SetCaption(IDS_MOUNT);
    LockFixedFields();
    BProbeState password(IDC_PASSWORD);
    RouteUpdateCommand(password);
    if (password.enabled)
        SetFocus(passwordEdit.hwnd);
}

void MountDialog::OnOk() {
    keyField.GetName(work.KeyPath);
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
    if (!work.IsMounted()) // it may have been mounted by somebody else meanwhile
        TakeDeviceState();
    UpdateTimeout(work);
    Accept();
}

} // namespace quilla
