#pragma once

#include "platform/text.h"

#include <windows.h>

#include <commdlg.h>

namespace quilla {

/// Filters of the file dialogs: pairs of a description and a pattern, each zero-terminated, ended by an empty
/// text.
inline constexpr wchar_t kVolumeFilter[] = L"Quilla Volume (*.raw)\0*.raw\0All Files\0*.*\0";
inline constexpr wchar_t kKeyFilter[] = L"Quilla Key (*.key)\0*.key\0All Files\0*.*\0";

/// The extension, without its full stop, of a filter's first pattern.
[[nodiscard]] const wchar_t* ExtensionOf(const wchar_t* filter);

/// The platform's file dialogs with one buffer for the chosen name. One object serves all dialogs, so that
/// their flags and the buffer exist once.
class FilePicker {
  public:
    explicit FilePicker(const wchar_t* filter);
    FilePicker(const FilePicker&) = delete;
    FilePicker& operator=(const FilePicker&) = delete;

    /// Sets the filter, which must stay valid, and with it the extension that names without one get.
    void SetFilter(const wchar_t* filter);

    /// Lets the user choose a file that exists; false if none was chosen.
    [[nodiscard]] bool Open(HWND owner);

    /// Lets the user name a file to make, starting with a name (null: none); false if none was named. Nothing
    /// is asked about a file that exists: it is never replaced.
    [[nodiscard]] bool Save(HWND owner, const wchar_t* initialName);

    /// The file of the last call that returned true.
    [[nodiscard]] const wchar_t* FileName() const { return fileName_; }

    /// OFN_ flags of the next call.
    [[nodiscard]] DWORD Flags() const { return dialog_.Flags; }
    void SetFlags(DWORD flags) { dialog_.Flags = flags; }

  private:
    void Prepare(HWND owner, const wchar_t* name);
    [[nodiscard]] bool Ask(BOOL(WINAPI* ask)(OPENFILENAMEW*), DWORD flags);

    OPENFILENAMEW dialog_;
    PathText fileName_;
};

} // namespace quilla
