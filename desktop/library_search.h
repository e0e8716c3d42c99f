#pragma once

namespace quilla {

/// Confines this process to libraries of the program's own folder and the system's: the current folder and
/// the search path never supply one. Called before anything else.
void RestrictLibrarySearch();

} // namespace quilla
