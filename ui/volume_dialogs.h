#pragma once

#include "toolkit/controls.h"
#include "toolkit/dialog.h"
#include "ui/creation_watch.h"
#include "ui/dialog_file_field.h"
#include "ui/strength_tip.h"
#include "ui/strength_wait.h"
#include "ui/ui_services.h"
#include "volume/volume_record.h"

namespace quilla {

/// The dialog that shows a volume; New, Mount and Properties are its variants. It edits a working copy of the
/// caller's record; what was edited goes back only on OK. The order of the fields is fixed.
class VolumeDialog : public BDialog {
  public:
    VolumeDialog(VolumeRecord& volume, const UiServices& services);
    ~VolumeDialog();

    void Attach(HWND handle) override;
    LRESULT OnMessage(BMessage& message) override;
    LRESULT OnCommand(int id, int code, HWND control) override;
    void OnUpdateCommand(BCommandState& state) override;
    /// Whether the named files are to be created.
    [[nodiscard]] virtual bool IsNewVolume() const { return false; }

  protected:
    /// Carries the dialog's purpose out; ends the dialog unless the input is wrong.
    virtual void OnOk() = 0;

    void SetCaption(UINT stringId);
    /// Volume path, size and cipher: what no dialog of an existing volume changes.
    void LockFixedFields();
    /// Takes the number on the screen; says so and asks again if it is none that the field takes.
    [[nodiscard]] bool TakeNumber(const BEdit& edit, const BUpDown& upDown, std::int16_t& number);
    [[nodiscard]] bool TakeTimeout();
    /// Ends the dialog with OK after the errors that its work has met; to be called with no secret in hand.
    void Finish();
    /// Shows a cipher and enables what goes with it.
    void ChooseCipher(CipherId cipher);

    /// The caller's, which may be the list's: while the dialog is open the volume may be mounted or
    /// dismounted, so only the fields that were edited go back, one by one.
    VolumeRecord* record;
    VolumeRecord work; ///< the copy that is edited
    VolumeFileField volumeField;
    BEdit sizeEdit;
    BUpDown sizeUpDown;
    BComboBox unitCombo;
    BComboBox cipherCombo;
    KeyFileField keyField;
    BEdit passwordEdit;
    BEdit timeoutEdit;
    BUpDown timeoutUpDown;
    const UiServices& services_;
    StrengthWait wait_{hwnd};

  private:
    /// Answers the questions of the file fields.
    class FieldHost final : public FileFieldHost {
      public:
        explicit FieldHost(VolumeDialog& dialog) : dialog_(dialog) {}
        [[nodiscard]] bool IsNewVolume() const override { return dialog_.IsNewVolume(); }
        [[nodiscard]] FilePicker& Picker() override { return dialog_.services_.picker; }
        void OnNameChosen(DialogFileField& field, const wchar_t* name) override {
            dialog_.OnNameChosen(field, name);
        }

      private:
        VolumeDialog& dialog_;
    };

    void BindControls();
    void ShowFileField(DialogFileField& field, int id, const wchar_t* path);
    void ShowSizeOfVolume();
    void OnNameChosen(DialogFileField& field, const wchar_t* name);
    /// Sets the volume's path and the key path that is proposed for it.
    void SetVolumePath(const wchar_t* path);

    FieldHost fieldHost_{*this};
};

/// Creates a volume: after OK its files have been asked for and the caller's record describes it.
class NewVolumeDialog final : public VolumeDialog {
  public:
    using VolumeDialog::VolumeDialog;

    void Attach(HWND handle) override;
    LRESULT OnMessage(BMessage& message) override;
    [[nodiscard]] bool IsNewVolume() const override { return true; }

    /// What became of the files; looked at after OK.
    [[nodiscard]] const CreationWatch& Creation() const { return watch_; }

  protected:
    void OnOk() override;

  private:
    void ShowRepeat();
    [[nodiscard]] bool IsPasswordConfirmed();
    [[nodiscard]] bool MakeStrong(PasswordDigest& passwordKey, KeyStrength& strength);
    void KeepStrength(const KeyStrength& strength);

    CreationWatch watch_;
    BEdit repeatEdit_;
    StrengthTip tip_;
};

/// Asks for a volume's password, checks it against the key file and has the volume mounted.
class MountDialog final : public VolumeDialog {
  public:
    using VolumeDialog::VolumeDialog;

    void Attach(HWND handle) override;

  protected:
    void OnOk() override;

  private:
    [[nodiscard]] bool IsKeyFileUsable();
};

/// Shows a volume; changes its time-out, and its key file's path while it is not mounted.
class PropertiesDialog final : public VolumeDialog {
  public:
    using VolumeDialog::VolumeDialog;

    void Attach(HWND handle) override;

  protected:
    void OnOk() override;

  private:
    void ShowStrength();
};

} // namespace quilla
