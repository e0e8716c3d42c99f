#include "app/application.h"
#include "app/edition.h"
#include "desktop/ce_services.h"
#include "desktop/command_line_memory.h"

#include <commctrl.h>

void quilla::InitialiseControls() {
    const INITCOMMONCONTROLSEX classes{.dwSize = sizeof(classes),
                                       .dwICC = ICC_LISTVIEW_CLASSES | ICC_BAR_CLASSES | ICC_UPDOWN_CLASS};
    InitCommonControlsEx(&classes);
}

/// The program's entry.
int WINAPI wWinMain(HINSTANCE /*instance*/, HINSTANCE /*previous*/, wchar_t* commandLine, int /*show*/) {
    quilla::RestrictLibrarySearch();
    quilla::Application application;
    return application.Run(commandLine);
}

/// The way to it, in place of the run-time library's own: that one drops the words which the library has
/// copied from the command line, a password perhaps among them, and nothing else knows where they lie.
extern "C" int wmain(int /*count*/, wchar_t** words) {
    return wWinMain(GetModuleHandleW(nullptr), nullptr, quilla::TakeCommandLine(words), SW_SHOWDEFAULT);
}
