#pragma once

namespace quilla {

/// Starts a program with a command line, whose text may be changed, and does not wait for it. Without a
/// program the command line's first word names it and is looked for as the system does. False if it cannot be
/// started.
bool StartProgram(const wchar_t* program, wchar_t* commandLine);

} // namespace quilla
