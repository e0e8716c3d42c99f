// A driver that notes the control codes it is sent, in place of the real one beside its own test program.

#include "tests/service/recording_driver/recorded_call.h"

#include <algorithm>
#include <iterator>
#include <windows.h>

namespace {

quilla::test::RecordedCall calls[32];
unsigned count = 0;

} // namespace

#define EXPORT extern "C" __declspec(dllexport)

EXPORT const quilla::test::RecordedCall* TakeCalls(unsigned* taken) {
    *taken = count;
    count = 0;
    return calls;
}

EXPORT std::uintptr_t SEC_Init(std::uintptr_t) {
    return 1;
}
EXPORT BOOL SEC_Deinit(std::uintptr_t) {
    return TRUE;
}
EXPORT std::uintptr_t SEC_Open(std::uintptr_t, DWORD, DWORD) {
    return 1;
}
EXPORT BOOL SEC_Close(std::uintptr_t) {
    return TRUE;
}
EXPORT BOOL SEC_IOControl(std::uintptr_t, DWORD code, BYTE* in, DWORD inSize, BYTE* out, DWORD outSize,
                          DWORD* returned) {
    // The export's own questions are answered and not noted.
    constexpr DWORD kGetLength = 0x0007405C;
    constexpr DWORD kFlushCache = 0x00071C54;
    if (code == kGetLength && outSize >= sizeof(std::uint64_t)) {
        *reinterpret_cast<std::uint64_t*>(out) = 64 * 1024;
        *returned = sizeof(std::uint64_t);
    }
    if (code == kGetLength || code == kFlushCache)
        return TRUE;
    quilla::test::RecordedCall& call = calls[count++ % std::size(calls)];
    call = {.code = code, .size = inSize, .hasOutput = out != nullptr || outSize != 0, .input = {}};
    std::copy_n(in, std::min<std::size_t>(inSize, sizeof(call.input)), reinterpret_cast<BYTE*>(call.input));
    return TRUE;
}
