#include "service/request_turn.h"

#include "platform/win32/handle.h"
#include "service/window_messages.h"

namespace quilla {

namespace {

/// What a turn and its keeper thread tell each other.
struct Keeper {
    UniqueEvent taken{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    UniqueEvent finished{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    UniqueThread thread;
};
Keeper* keeper = nullptr;
unsigned depth = 0;

DWORD WINAPI KeepMutex(void* context) {
    const Keeper& own = *static_cast<const Keeper*>(context);
    const UniqueMutex mutex(CreateMutexW(nullptr, TRUE, kRequestMutexName));
    if (GetLastError() == ERROR_ALREADY_EXISTS)
        WaitForSingleObject(mutex.Get(), INFINITE);
    SetEvent(own.taken.Get());
    WaitForSingleObject(own.finished.Get(), INFINITE);
    return 0; // the end of this thread is what passes the mutex on
}

void WaitServing(HANDLE event) {
    while (MsgWaitForMultipleObjectsEx(1, &event, INFINITE, QS_SENDMESSAGE, MWMO_INPUTAVAILABLE) ==
           WAIT_OBJECT_0 + 1) {
        MSG ignored;
        PeekMessageW(&ignored, nullptr, 0, 0, PM_NOREMOVE | PM_QS_SENDMESSAGE);
    }
}

void StartKeeper() {
    static Keeper started;
    ResetEvent(started.taken.Get());
    ResetEvent(started.finished.Get());
    started.thread.Reset(CreateThread(nullptr, 0, KeepMutex, &started, 0, nullptr));
    keeper = &started;
}

} // namespace

RequestTurn::RequestTurn() {
    if (depth++ == 0)
        StartKeeper();
    if (keeper->thread)
        WaitServing(keeper->taken.Get()); // again in a request that is sent while an outer one waits
}

RequestTurn::~RequestTurn() {
    if (--depth > 0)
        return;
    SetEvent(keeper->finished.Get());
    if (keeper->thread)
        WaitForSingleObject(keeper->thread.Get(), INFINITE);
    keeper->thread.Reset();
}

bool RequestTurn::IsAny() {
    return depth > 0;
}

} // namespace quilla
