#include "ui/file_picker.h"

#include <cwchar>

namespace quilla {

const wchar_t* ExtensionOf(const wchar_t* filter) {
    const wchar_t* const pattern = filter + std::wcslen(filter) + 1;
    constexpr std::size_t kWildcardUnits = 2; // "*."
    return pattern + kWildcardUnits;
}

FilePicker::FilePicker(const wchar_t* filter) : dialog_{}, fileName_{} {
    dialog_.lStructSize = sizeof(dialog_);
    dialog_.lpstrFile = fileName_;
    dialog_.nMaxFile = kPathUnits;
    dialog_.Flags = OFN_OVERWRITEPROMPT | OFN_HIDEREADONLY | OFN_PATHMUSTEXIST;
    SetFilter(filter);
}

void FilePicker::SetFilter(const wchar_t* filter) {
    dialog_.lpstrFilter = filter;
    dialog_.nFilterIndex = 1;
    dialog_.lpstrDefExt = ExtensionOf(filter);
}

void FilePicker::Prepare(HWND owner, const wchar_t* name) {
    dialog_.hwndOwner = owner;
    CopyText(fileName_, name != nullptr ? TextView(name) : TextView());
}

bool FilePicker::Ask(BOOL(WINAPI* ask)(OPENFILENAMEW*), DWORD flags) {
    const DWORD kept = dialog_.Flags;
    dialog_.Flags = flags | OFN_NOCHANGEDIR;
    const bool chosen = ask(&dialog_) != FALSE;
    dialog_.Flags = kept;
    return chosen;
}

bool FilePicker::Open(HWND owner) {
    Prepare(owner, nullptr);
    return Ask(GetOpenFileNameW, dialog_.Flags | OFN_FILEMUSTEXIST);
}

bool FilePicker::Save(HWND owner, const wchar_t* initialName) {
    Prepare(owner, initialName);
    return Ask(GetSaveFileNameW, dialog_.Flags & ~static_cast<DWORD>(OFN_OVERWRITEPROMPT));
}

} // namespace quilla
