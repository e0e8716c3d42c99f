#include "ui/help.h"

#include "platform/win32/start_program.h"

namespace quilla {

void OpenHelp(HWND /*owner*/) {
    wchar_t commandLine[] = L"file:Quilla.htm";
    static_cast<void>(StartProgram(L"PegHelp.exe", commandLine));
}

} // namespace quilla
