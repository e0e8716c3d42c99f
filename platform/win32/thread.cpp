#include "platform/thread.h"

#include <bit>
#include <memory>
#include <new>
#include <utility>
#include <windows.h>

namespace quilla {

namespace {

struct StartBlock {
    Thread::Routine routine;
    void* context;
};

DWORD WINAPI RunThread(void* argument) {
    const std::unique_ptr<StartBlock> start(static_cast<StartBlock*>(argument));
    start->routine(start->context);
    return 0;
}

} // namespace

bool Thread::Start(Routine routine, void* context) {
    Join();
    std::unique_ptr<StartBlock> start(new (std::nothrow) StartBlock{.routine = routine, .context = context});
    if (!start)
        return false;
    const HANDLE thread = CreateThread(nullptr, 0, RunThread, start.get(), 0, nullptr);
    if (thread == nullptr)
        return false;
    static_cast<void>(start.release()); // the thread owns it now
    handle_ = std::bit_cast<std::uintptr_t>(thread);
    started_ = true;
    return true;
}

void Thread::Join() {
    if (!std::exchange(started_, false))
        return;
    const HANDLE thread = std::bit_cast<HANDLE>(handle_);
    WaitForSingleObject(thread, INFINITE);
    CloseHandle(thread);
}

unsigned CountProcessors() {
    SYSTEM_INFO info{};
    GetSystemInfo(&info);
    return info.dwNumberOfProcessors > 0 ? info.dwNumberOfProcessors : 1;
}

} // namespace quilla
