#include "toolkit/file_field.h"

#include "platform/text.h"

#include <algorithm>
#include <iterator>

namespace quilla {

namespace {

/// A label's text without the mark of its access key.
void ReadLabel(HWND label, wchar_t (&text)[64]) {
    GetWindowTextW(label, text, static_cast<int>(std::size(text)));
    *std::remove(std::begin(text), std::find(std::begin(text), std::end(text), L'\0'), L'&') = 0;
}

} // namespace

/// The edit is named by the hidden label before it, as what reads a screen aloud looks for the label before a
/// control among its siblings only.
void FileField::NameParts() {
    wchar_t text[64];
    ReadLabel(GetWindow(hwnd, GW_HWNDPREV), text);
    const HWND label = CreateWindowExW(0, L"STATIC", text, WS_CHILD | SS_NOPREFIX, 0, 0, 0, 0, hwnd, nullptr,
                                       GetModuleHandleW(nullptr), nullptr);
    SetWindowPos(label, HWND_TOP, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE);
    SetWindowTextW(button.hwnd, L"Browse");
    SetWindowLongW(hwnd, GWL_EXSTYLE, GetWindowLongW(hwnd, GWL_EXSTYLE) | WS_EX_CONTROLPARENT);
}

void FileField::OfferButton() const {
    const LONG style = GetWindowLongW(button.hwnd, GWL_STYLE) & ~static_cast<LONG>(WS_TABSTOP);
    SetWindowLongW(button.hwnd, GWL_STYLE, readOnly ? style : style | static_cast<LONG>(WS_TABSTOP));
}

} // namespace quilla
