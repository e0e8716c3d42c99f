#include "ui/properties_dialog.h"

#include "platform/error_box.h"
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
    if (!record->IsMounted()) // by now
        CopyText(record->KeyPath, FieldText(work.KeyPath));
    record->Timeout = work.Timeout;
    if (record->IsMounted())
        services.driver.UpdateDriver(*record);
    {
        const ErrorHold hold;
        UpdateTimeout(*record);
    }
    Finish();
}

} // namespace quilla
