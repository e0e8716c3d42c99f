#include "platform/win32/start_program.h"

#include "platform/win32/handle.h"

namespace quilla {

bool StartProgram(const wchar_t* program, wchar_t* commandLine) {
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION started{};
    if (!CreateProcessW(program, commandLine, nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                        &started))
        return false;
    const UniqueProcess thread(started.hThread);
    const UniqueProcess process(started.hProcess);
    return true;
}

} // namespace quilla
