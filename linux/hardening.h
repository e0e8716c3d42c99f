#pragma once

namespace quilla {

/// Shuts the process against onlookers: no core file, no tracing by others, new files for the user only.
void ShutOut();

/// Keeps the process's pages out of the swap file and in memory once they are touched, if the limits allow it
/// for all that a service maps; a child process needs it anew. Secrets have locked memory of their own
/// besides.
void LockProcessMemory();

} // namespace quilla
