#include "platform/error_box.h"

#include "platform/text.h"

#include <cstdio>
#include <windows.h>

namespace quilla {

namespace {

/// The system's description of an error code, or its number when the system has none that fits.
void DescribeSystemError(DWORD error, std::span<wchar_t> text) {
    const DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                                        error, MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), text.data(),
                                        static_cast<DWORD>(text.size()), nullptr);
    if (length == 0)
        static_cast<void>(
            std::swprintf(text.data(), text.size(), L"Error code: %u", static_cast<unsigned>(error)));
    text.back() = 0; // a number that does not fit leaves the text unterminated
}

} // namespace

void ShowError(const wchar_t* text) {
    MessageBoxW(GetActiveWindow(), text, L"Quilla Error", MB_ICONERROR);
}

bool CheckResult(bool ok, const wchar_t* text) {
    if (!ok)
        ShowError(text);
    return ok;
}

bool CheckResultWithSystemError(bool ok, const wchar_t* text) {
    const DWORD error = GetLastError();
    if (ok)
        return ok;
    PathText message;
    CopyText(message, text);
    std::size_t length = FieldText(message).size();
    if (error != ERROR_SUCCESS) {
        if (length > 0 && length + 1 < kPathUnits)
            message[length++] = L'\n';
        if (length + 1 < kPathUnits)
            DescribeSystemError(error, std::span(message).subspan(length));
        else
            message[length] = 0;
    }
    ShowError(message);
    return ok;
}

} // namespace quilla
