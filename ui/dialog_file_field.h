#pragma once

#include "toolkit/file_field.h"
#include "ui/file_picker.h"

namespace quilla {

/// What a file field asks its dialog.
class FileFieldHost {
  public:
    FileFieldHost() = default;
    FileFieldHost(const FileFieldHost&) = delete;
    FileFieldHost& operator=(const FileFieldHost&) = delete;

    /// Whether the named files are to be created: browsing then saves instead of opening.
    [[nodiscard]] virtual bool IsNewVolume() const = 0;
    [[nodiscard]] virtual FilePicker& Picker() = 0;

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
    virtual void SetName(const wchar_t* name);
    void GetName(PathText& name) const;

  protected:
    DialogFileField(FileFieldHost& host, const wchar_t* filter, TextView extension)
        : host_(host), filter_(filter), extension_(extension) {}

  private:
    void Browse();
    [[nodiscard]] bool PickName(FilePicker& picker);
    void Complete();

    FileFieldHost& host_;
    const wchar_t* filter_;
    TextView extension_;
};

class KeyFileField final : public DialogFileField {
  public:
    explicit KeyFileField(FileFieldHost& host) : DialogFileField(host, kKeyFilter, L"key") {}
};

/// Every name that the user chooses for the volume file brings its key file's along.
class VolumeFileField final : public DialogFileField {
  public:
    VolumeFileField(FileFieldHost& host, KeyFileField& keyField)
        : DialogFileField(host, kVolumeFilter, L"raw"), keyField_(keyField) {}

    void SetName(const wchar_t* name) override { SetVolumePath(name); }

    /// Sets the volume's path here and the proposed key path into the key field.
    void SetVolumePath(const wchar_t* path);

  private:
    KeyFileField& keyField_;
};

} // namespace quilla
