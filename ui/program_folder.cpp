#include "ui/program_folder.h"

#include <windows.h>

namespace quilla {

bool PathBesideProgram(const wchar_t* fileName, PathText& path) {
    PathText program;
    const DWORD length = GetModuleFileNameW(nullptr, program, kPathUnits);
    if (length == 0 || length == kPathUnits)
        return false;
    const TextView folder = TextView(program, length).substr(0, TextView(program, length).rfind(L'\\') + 1);
    const TextView name(fileName);
    if (folder.size() + name.size() >= kPathUnits)
        return false;
    folder.copy(path, folder.size());
    name.copy(path + folder.size(), name.size());
    path[folder.size() + name.size()] = 0;
    return true;
}

} // namespace quilla
