#pragma once

#include <span>
#include <windows.h>

/// What all dialogs of the program need.
namespace quilla {

/// A dialog, message box or file dialog that is open on this thread, or null.
[[nodiscard]] HWND FindOpenDialog();

/// Gives an edit the focus, with its text selected.
void AskAgain(HWND dialog, HWND edit);

/// Says what is wrong with an edit's text, in a message box that the dialog owns, after the errors that wait
/// to be shown; with these alone for null. Then asks for the text again.
void RejectInput(HWND dialog, HWND edit, const wchar_t* reason);

/// Asks whether a volume is to have an empty password, which anybody knows.
[[nodiscard]] bool ConfirmEmptyPassword(HWND dialog);

/// Makes room for a row of controls: what is visible at a height or below it, in dialog units, moves down by
/// the height of a row, and the dialog grows.
void InsertDialogRow(HWND dialog, int top);

/// How a control follows when its dialog grows to the right.
enum class Follow : unsigned char { Stretch, Move };

struct ControlLayout {
    int id;
    Follow follow;
};

/// Dialog units that make the fields of a handheld's template twice as wide.
inline constexpr int kDesktopExtraWidth = 84;

/// Makes a dialog wider by a number of dialog units and puts it over the middle of its owner. Templates have
/// the width of a handheld's screen and are centred on it; a desktop has room for whole paths, and a window
/// where the user looks. Does nothing on a handheld.
void FitDialog(HWND dialog, int units, std::span<const ControlLayout> controls);

} // namespace quilla
