#pragma once

namespace quilla {

/// Has the system register the classes of its common controls.
void InitialiseControls();

} // namespace quilla
