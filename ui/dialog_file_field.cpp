#include "ui/dialog_file_field.h"

#include "platform/win32/format_text.h"
#include "ui/file_name.h"

#include <commctrl.h>

namespace quilla {

void DialogFileField::Attach(HWND handle) {
    FileField::Attach(handle);
    SendMessageW(edit.hwnd, EM_SETLIMITTEXT, kPathUnits - 1, 0);
}

LRESULT DialogFileField::OnNotify(NMHDR& header) {
    if (header.hwndFrom != hwnd)
        return FileField::OnNotify(header);
    if (header.code == kBrowseNotification)
        Browse();
    else if (header.code == static_cast<UINT>(NM_KILLFOCUS))
        Complete();
    else
        return FileField::OnNotify(header);
    return 0;
}

void DialogFileField::GetName(PathText& name) const {
    name[0] = 0;
    GetWindowTextW(edit.hwnd, name, kPathUnits);
}

void DialogFileField::SetName(const wchar_t* name) {
    SetWindowTextW(edit.hwnd, name);
}

void DialogFileField::Browse() {
    FilePicker& picker = host_.Picker();
    picker.SetFilter(filter_);
    if (PickName(picker))
        host_.OnNameChosen(*this, picker.FileName());
}

bool DialogFileField::PickName(FilePicker& picker) {
    if (!host_.IsNewVolume())
        return picker.Open(hwnd);
    PathText name;
    GetName(name);
    const DWORD flags = picker.Flags();
    picker.SetFlags(flags & ~static_cast<DWORD>(OFN_FILEMUSTEXIST)); // the file is still to be made
    const bool picked = picker.Save(hwnd, name);
    picker.SetFlags(flags);
    if (!picked || GetFileAttributesW(picker.FileName()) == INVALID_FILE_ATTRIBUTES)
        return picked;
    wchar_t text[kPathUnits + 80];
    FormatText(text, L"The file\n\n%ls\n\nexists already. A new volume needs new files.", picker.FileName());
    MessageBoxW(GetParent(hwnd), text, L"Quilla Tarn Error", MB_ICONERROR);
    return false;
}

void DialogFileField::Complete() {
    if (readOnly || !SendMessageW(edit.hwnd, EM_GETMODIFY, 0, 0))
        return;
    PathText typed;
    GetName(typed);
    PathText name;
    CompleteFileName(FieldText(typed), ExtensionOf(filter_), name);
    host_.OnNameChosen(*this, name);
}

} // namespace quilla
