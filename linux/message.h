#pragma once

namespace quilla {

/// What the command tells the shell; part of its interface (see the manual page).
enum class ExitCode : int {
    Done = 0,
    Usage = 1,
    WrongPassword = 2,
    BadFile = 3, ///< a data file, key file or folder cannot be used
    Busy = 4,
    SystemLacks = 5,
};

/// Prints "quilla: " and a line to the error output and returns the code.
[[gnu::format(printf, 2, 3)]] ExitCode Fail(ExitCode code, const char* format, ...);

/// The same for what does not end the command.
[[gnu::format(printf, 1, 2)]] void Warn(const char* format, ...);

} // namespace quilla
