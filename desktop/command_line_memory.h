#pragma once

namespace quilla {

/// The arguments of this process as one text: the system's own command line behind the program's name and the
/// blanks that follow it. The words are the copies that the run-time library has made of it for this process;
/// they are remembered for WipeCommandLine.
[[nodiscard]] wchar_t* TakeCommandLine(wchar_t** words);

/// Overwrites the arguments in place, since a password may be among them, and in all memory of this process
/// where the system and the run-time library keep copies: as one text and as a list of words, wide and
/// narrow. Copies of other processes, such as the one that started this one, are out of reach.
void WipeCommandLine(wchar_t* arguments);

} // namespace quilla
