#pragma once

namespace quilla {

/// The arguments of this process as one text: its command line without the program's name and the blanks
/// behind it. Empty after WipeCommandLine.
[[nodiscard]] const wchar_t* CommandLineArguments();

/// Overwrites the arguments in all memory of this process where the system and the run-time library keep
/// copies, since a password may be among them: as one text and as a list of words, wide and narrow. words is
/// the list that the entry function got. Copies of other processes, such as the one that started this one,
/// are out of reach.
void WipeCommandLine(wchar_t** words);

} // namespace quilla
