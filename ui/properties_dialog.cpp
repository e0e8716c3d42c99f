#include "ui/properties_dialog.h"

#include "store/volume_files.h"
#include "ui/resource.h"

namespace quilla {

void PropertiesDialog::Attach(HWND handle) {
    VolumeDialog::Attach(handle);
    SetCaption(IDS_PROPERTIES);
    LockFixedFields();
    SendMessageW(passwordEdit.hwnd, EM_SETREADONLY, TRUE, 0);
    if (work.IsMounted())
        keyField.SetReadOnly(true);
}

void PropertiesDialog::OnOk() {
    if (!keyField.readOnly)
        keyField.GetName(work.KeyPath);
    TakeTimeout();
    TakeDeviceState();
    if (work.IsMounted())
        services.driver.UpdateDriver(work);
    UpdateTimeout(work);
    Accept();
}

} // namespace quilla
