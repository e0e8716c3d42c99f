#include "app/application.h"
#include "app/edition.h"
#include "desktop/command_line_memory.h"
#include "platform/wipe.h"
#include "toolkit/handheld/control_library.h"

#include <commctrl.h>
#include <cwchar>

void quilla::InitialiseControls() {
    constexpr INITCOMMONCONTROLSEX kClasses{
        .dwSize = sizeof(kClasses), .dwICC = ICC_LISTVIEW_CLASSES | ICC_BAR_CLASSES | ICC_UPDOWN_CLASS};
    const auto initialise = reinterpret_cast<BOOL (*)(const INITCOMMONCONTROLSEX*)>(
        reinterpret_cast<void*>(FindInControlLibrary(L"InitCommonControlsEx")));
    if (initialise != nullptr)
        initialise(&kClasses);
}

/// There is no list of words on Windows CE, and the one copy of the line that this process knows of is the
/// entry's.
void quilla::WipeCommandLine(wchar_t* arguments) {
    WipeMemory(arguments, std::wcslen(arguments) * sizeof(wchar_t));
}

/// The program's entry, with the line as the system gives it: without the program's name.
extern "C" int wWinMain(HINSTANCE /*instance*/, HINSTANCE /*previous*/, wchar_t* commandLine, int /*show*/) {
    quilla::Application application;
    return application.Run(commandLine);
}
