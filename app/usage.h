#pragma once

namespace quilla {

/// The one answer to a malformed command line: a message box that shows the accepted forms.
void ShowUsage();

} // namespace quilla
