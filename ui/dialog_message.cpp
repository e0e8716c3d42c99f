#include "ui/dialog_message.h"

namespace quilla {

void ShowDialogError(HWND dialog, const wchar_t* text) {
    MessageBoxW(dialog, text, L"Quilla Tarn Error", MB_ICONHAND);
}

} // namespace quilla
