#include "platform/win32/program_folder.h"

#include <windows.h>

namespace quilla {

bool PathBesideProgram(TextView fileName, PathText& path) {
    PathText program;
    const DWORD length = GetModuleFileNameW(nullptr, program, kPathUnits);
    if (length == 0 || length == kPathUnits)
        return false;
    const TextView folder = TextView(program, length).substr(0, TextView(program, length).rfind(L'\\') + 1);
    if (folder.size() + fileName.size() >= kPathUnits)
        return false;
    folder.copy(path, folder.size());
    fileName.copy(path + folder.size(), fileName.size());
    path[folder.size() + fileName.size()] = 0;
    return true;
}

} // namespace quilla
