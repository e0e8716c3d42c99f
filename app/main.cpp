#include "app/application.h"
#include "platform/desktop/library_search.h"

#include <windows.h>

int WINAPI wWinMain(HINSTANCE /*instance*/, HINSTANCE /*previous*/, wchar_t* commandLine, int /*show*/) {
    quilla::RestrictLibrarySearch();
    quilla::Application application;
    return application.Run(commandLine);
}
