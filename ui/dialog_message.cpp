#include "ui/dialog_message.h"

#include "platform/error_box.h"

namespace quilla {

void ShowDialogError(HWND dialog, const wchar_t* text) {
    ShowNotedErrors(); // what led to it comes first
    MessageBoxW(dialog, text, L"Quilla Tarn Error", MB_ICONHAND);
}

} // namespace quilla
