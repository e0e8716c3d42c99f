#include "ui/volume_dialogs.h"

#include "platform/wipe.h"
#include "ui/dialog_values.h"
#include "ui/resource.h"
#include "ui/secret_edit.h"

#include <commctrl.h>

namespace quilla {

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
}

void NewVolumeDialog::OnOk() {
    volumeField.GetName(work.Path);
    const auto size = static_cast<std::int16_t>(SendMessageW(sizeUpDown.hwnd, UDM_GETPOS32, 0, 0));
    work.Size = SizeFromShown(size, static_cast<int>(SendMessageW(unitCombo.hwnd, CB_GETCURSEL, 0, 0)));
    work.Cipher = CipherFromShown(static_cast<int>(SendMessageW(cipherCombo.hwnd, CB_GETCURSEL, 0, 0)));
    TakeTimeout();
    Secret<PasswordDigest> passwordKey;
    if (work.Cipher != CipherId::None) {
        keyField.GetName(work.KeyPath);
        TakePasswordKey(passwordEdit.hwnd, *passwordKey);
    }
    services_.channel.SendCreateVolumeFile(work, *passwordKey);
    passwordKey.WipeNow();
    *record = work;
    Finish();
}

} // namespace quilla
