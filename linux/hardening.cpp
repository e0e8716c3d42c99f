#include "linux/hardening.h"

#include <cstddef>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>

namespace quilla {

void ShutOut() {
    const rlimit none{};
    static_cast<void>(setrlimit(RLIMIT_CORE, &none));
    static_cast<void>(prctl(PR_SET_DUMPABLE, 0));
    umask(077);
}

void LockProcessMemory() {
    // Under a limit the stacks of threads could not be mapped any more.
    constexpr std::size_t kNeeded = std::size_t{64} << 20;
    if (mlockall(MCL_CURRENT | MCL_FUTURE | MCL_ONFAULT) != 0)
        return;
    void* const probe = mmap(nullptr, kNeeded, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (probe == MAP_FAILED)
        munlockall();
    else
        munmap(probe, kNeeded);
}

} // namespace quilla
