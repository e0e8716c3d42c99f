#pragma once

#include "platform/text.h"

namespace quilla {

/// Makes a relative path absolute, so that it means the same file to another process, whose current folder
/// may be another one. Windows CE has no current folder, so a path from there has its meaning in itself. A
/// path that begins with a backslash or a drive, and one whose full form would not fit, stay as they are.
void AddCurrentFolder(PathText& path);

} // namespace quilla
