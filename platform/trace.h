#pragma once

namespace quilla {

/// Leaves a line, given without its end, where who looks for a cause finds it: in the system's debug output
/// on Windows, on the standard error output elsewhere.
void Trace(const char* line);

} // namespace quilla
