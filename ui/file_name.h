#pragma once

#include "platform/text.h"

namespace quilla {

/// Completes a file name that the user typed: slashes become backslashes, a relative name becomes one of the
/// root folder (a leading backslash; a name with a drive is absolute already), and a name without an
/// extension gets one. An empty name and a folder's (a backslash at its end) get no extension, and a name
/// stays as typed when its full form would not fit.
void CompleteFileName(TextView typed, TextView extension, PathText& name);

/// The key file that the dialogs propose for a volume file: the default one, or for an empty name and a
/// folder's the name itself.
void ProposeKeyPath(TextView volumePath, PathText& keyPath);

/// The name of a file without its folder: the end of the path's own text.
[[nodiscard]] TextView FileNameIn(TextView path);

} // namespace quilla
