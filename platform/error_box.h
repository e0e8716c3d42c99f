#pragma once

namespace quilla {

/// Shows a text in a message box owned by the active window: caption "Quilla Error", error icon, OK.
void ShowError(const wchar_t* text);

/// Passes ok through; shows the text first if it is false.
bool CheckResult(bool ok, const wchar_t* text);

/// Passes ok through; if it is false, first shows the text followed by the system's description of the
/// thread's last error, which must still be the failed call's. With a last error of zero only the text is
/// shown. The whole message is cut to 259 units.
bool CheckResultWithSystemError(bool ok, const wchar_t* text);

} // namespace quilla
