// The system has no current folder, no drives and no short names: every path is a full one.

#include "platform/win32/full_path.h"

namespace quilla {

void WriteFullPath(const wchar_t* path, PathText& text) {
    CopyText(text, path);
}

} // namespace quilla
