#include "ui/help.h"

#include "platform/win32/program_folder.h"
#include "platform/win32/start_program.h"

#include <shellapi.h>

namespace quilla {

namespace {

/// Starts the help viewer. On a desktop only one beside the program counts: a bare name would be looked for
/// in the current folder, which may be anybody's.
bool StartHelpViewer() {
    wchar_t commandLine[] = L"file:Quilla.htm";
    PathText viewer;
    if (!PathBesideProgram(L"PegHelp.exe", viewer))
        return false;
    return StartProgram(viewer, commandLine);
}

} // namespace

void OpenHelp(HWND owner) {
    PathText page;
    if (!StartHelpViewer() && PathBesideProgram(L"Quilla.htm", page))
        ShellExecuteW(owner, nullptr, page, nullptr, nullptr, SW_SHOWNORMAL);
}

} // namespace quilla
