#pragma once

#include "toolkit/file_field.h"
#include "ui/file_picker.h"

namespace quilla {

class DialogFileField;

/// What a file field asks and tells its dialog.
class FileFieldHost {
  public:
    FileFieldHost() = default;
    FileFieldHost(const FileFieldHost&) = delete;
    FileFieldHost& operator=(const FileFieldHost&) = delete;

    /// Whether the named files are to be created: browsing then saves instead of opening.
    [[nodiscard]] virtual bool IsNewVolume() const = 0;
    [[nodiscard]] virtual FilePicker& Picker() = 0;
    /// The user has named a file, whole now; it is the host that shows the name.
    virtual void OnNameChosen(DialogFileField& field, const wchar_t* name) = 0;

  protected:
    ~FileFieldHost() = default;
};

/// A file field of the volume dialogs: browses with the platform's file dialogs and completes what was typed
/// when the focus leaves it.
class DialogFileField : public FileField {
  public:
    void Attach(HWND handle) override;
    LRESULT OnNotify(NMHDR& header) override;

    /// Takes a complete file name.
    void SetName(const wchar_t* name);
    void GetName(PathText& name) const;

  protected:
    /// Names without an extension get the filter's.
    DialogFileField(FileFieldHost& host, const wchar_t* filter) : host_(host), filter_(filter) {}

  private:
    void Browse();
    [[nodiscard]] bool PickName(FilePicker& picker);
    void Complete();

    FileFieldHost& host_;
    const wchar_t* filter_;
};

class VolumeFileField final : public DialogFileField {
  public:
    explicit VolumeFileField(FileFieldHost& host) : DialogFileField(host, kVolumeFilter) {}
};

class KeyFileField final : public DialogFileField {
  public:
    explicit KeyFileField(FileFieldHost& host) : DialogFileField(host, kKeyFilter) {}
};

} // namespace quilla
