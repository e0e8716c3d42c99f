#pragma once

#include "platform/win32/handle.h"

#include <cstdio>
#include <windows.h>

namespace quilla::test {

/// Ends the test program with a failure, and says what stands open, if it has not ended itself in time: a
/// test that waits in a dialog's message loop cannot.
class Deadline {
  public:
    explicit Deadline(DWORD milliseconds = 60'000) : limit_(milliseconds) {
        thread_.Reset(CreateThread(nullptr, 0, Run, this, 0, nullptr));
    }
    ~Deadline() {
        SetEvent(met_.Get());
        WaitForSingleObject(thread_.Get(), INFINITE);
    }
    Deadline(const Deadline&) = delete;
    Deadline& operator=(const Deadline&) = delete;

  private:
    static DWORD WINAPI Run(void* context) {
        const Deadline& own = *static_cast<const Deadline*>(context);
        if (WaitForSingleObject(own.met_.Get(), own.limit_) == WAIT_OBJECT_0)
            return 0;
        char title[128] = "nothing";
        GetWindowTextA(GetForegroundWindow(), title, sizeof(title));
        std::fprintf(stderr, "the test has not ended after %lu ms; in front: %s\n", own.limit_, title);
        TerminateProcess(GetCurrentProcess(), 3);
        return 3;
    }

    const DWORD limit_;
    UniqueEvent met_{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    UniqueThread thread_;
};

} // namespace quilla::test
