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

bool FilePicker::Open(HWND owner) {
    Prepare(owner, nullptr);
    return GetOpenFileNameW(&dialog_) != FALSE;
}

bool FilePicker::Save(HWND owner, const wchar_t* initialName) {
    Prepare(owner, initialName);
    return GetSaveFileNameW(&dialog_) != FALSE;
}

} // namespace quilla
