#include "ui/about_dialog.h"

#include "platform/win32/format_text.h"
#include "service/driver_control.h"
#include "store/display_text.h"
#include "toolkit/dpi.h"
#include "ui/dialog_support.h"
#include "ui/resource.h"

namespace quilla {

namespace {

constexpr int kIconSize = 48; // at 96 pixels per inch

} // namespace

void AboutDialog::Attach(HWND handle) {
    BDialog::Attach(handle);
    FitDialog(hwnd, 0, {});
    icon_ = LoadProgramIcon(ScaleToWindow(hwnd, kIconSize));
    SendDlgItemMessageW(hwnd, IDC_ABOUT_ICON, STM_SETICON, reinterpret_cast<WPARAM>(icon_.Get()), 0);

    wchar_t text[160];
    FormatText(text, L"Quilla Tarn %d.%d.%d", QUILLA_VERSION_MAJOR, QUILLA_VERSION_MINOR,
               QUILLA_VERSION_PATCH);
    SetDlgItemTextW(hwnd, IDC_ABOUT_NAME, text);
    SetDlgItemTextW(hwnd, IDC_ABOUT_COPYRIGHT, L"Copyright \u00A9 2026 The Quilla Tarn authors");
    FormatText(text, L"Ciphers: %ls (XTS), %ls (CBC)", CipherName(CipherId::Twofish),
               CipherName(CipherId::Cast128));
    SetDlgItemTextW(hwnd, IDC_ABOUT_CIPHERS, text);
    DriverControl::DescribeKernels(text);
    SetDlgItemTextW(hwnd, IDC_ABOUT_KERNELS, text);
}

} // namespace quilla
