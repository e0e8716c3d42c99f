#pragma once

namespace quilla {

/// Shows a text in a message box owned by the active window: caption "Quilla Error", error icon, OK. While an
/// ErrorHold lives, text and owner are noted instead; a text that waits already is not noted again.
void ShowError(const wchar_t* text);

/// Passes ok through; shows the text first if it is false.
bool CheckResult(bool ok, const wchar_t* text);

/// Passes ok through; if it is false, first shows the text followed by the system's description of the
/// thread's last error, which must still be the failed call's. With a last error of zero only the text is
/// shown. The message has 259 units at most: a longer text loses its middle.
bool CheckResultWithSystemError(bool ok, const wchar_t* text);

/// While one lives, errors are noted and no box is shown. A box runs a message loop that lets every other
/// request, command and message in, so none may open while a row, a key, a lock or an exchange is held. When
/// the outermost hold ends, the announcer is told, or, without one, the boxes are shown there and then. Used
/// on one thread, that of the windows.
class ErrorHold {
  public:
    ErrorHold();
    ~ErrorHold();
    ErrorHold(const ErrorHold&) = delete;
    ErrorHold& operator=(const ErrorHold&) = delete;
};

/// Shows what has been noted, one box at a time, the oldest first. Does nothing while a hold lives or while
/// an outer call is at it already. Returns whether it has shown any.
bool ShowNotedErrors();

/// Whether errors wait to be shown.
[[nodiscard]] bool HasNotedErrors();

/// Is called when errors have been noted and the last hold has ended: sees to it that ShowNotedErrors is
/// called from a place that holds nothing, such as a posted message.
using ErrorAnnouncer = void (*)(void* context);
void SetErrorAnnouncer(ErrorAnnouncer announce, void* context);

} // namespace quilla
