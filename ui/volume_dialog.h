#pragma once

#include "toolkit/combo_box.h"
#include "toolkit/dialog.h"
#include "toolkit/edit.h"
#include "toolkit/up_down.h"
#include "ui/dialog_file_field.h"
#include "ui/ui_services.h"
#include "volume/volume_record.h"

namespace quilla {

/// The dialog that shows a volume; New, Mount and Properties are its variants. It edits a working copy of the
/// caller's record; what was edited goes back only on OK.
class VolumeDialog : public BDialog, protected FileFieldHost {
  public:
    VolumeDialog(VolumeRecord& volume, const UiServices& uiServices);
    ~VolumeDialog();

    void Attach(HWND handle) override;
    LRESULT OnMessage(BMessage& message) override;
    LRESULT OnCommand(int id, int code, HWND control) override;
    void OnUpdateCommand(BCommandState& state) override;
    [[nodiscard]] bool IsNewVolume() const override { return false; }

  protected:
    /// Carries the dialog's purpose out; ends the dialog unless the input is wrong.
    virtual void OnOk() = 0;

    [[nodiscard]] FilePicker& Picker() override { return services.picker; }

    void SetCaption(UINT stringId);
    /// Volume path, size and cipher: what no dialog of an existing volume changes.
    void LockFixedFields();
    void TakeTimeout();
    /// Ends the dialog with OK after the errors that its work has met; to be called with no secret in hand.
    void Finish();
    /// Shows a cipher and enables what goes with it.
    void ChooseCipher(CipherId cipher);

    /// The caller's, which may be the list's: while the dialog is open the volume may be mounted or
    /// dismounted, so only the fields that were edited go back, one by one.
    VolumeRecord* record;
    VolumeRecord work; ///< the copy that is edited
    const UiServices& services;
    KeyFileField keyField;
    VolumeFileField volumeField;
    BEdit sizeEdit;
    BUpDown sizeUpDown;
    BComboBox unitCombo;
    BComboBox cipherCombo;
    BEdit passwordEdit;
    BEdit timeoutEdit;
    BUpDown timeoutUpDown;

  private:
    void BindControls();
    void ShowFileField(DialogFileField& field, int id, const wchar_t* path);
    void ShowSizeOfVolume();
};

} // namespace quilla
