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

/// The entry of the desktop program. The run-time library's own entry for window programs would keep a copy
/// of the command line's words out of reach.
extern "C" int wmain(int /*count*/, wchar_t** words) {
    quilla::RestrictLibrarySearch();
    quilla::Application application;
    return application.Run(quilla::CommandLineArguments(), words);
}
