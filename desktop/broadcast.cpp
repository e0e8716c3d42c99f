// The notice to all windows. Desktop Windows refuses to carry a pointer in an asynchronous system message
// (ERROR_MESSAGE_SYNC_ONLY), so each window gets a synchronous message with a time limit instead.

#include "desktop/ce_services.h"

namespace ce {

namespace {

constexpr UINT kLimitPerWindow = 200;     // milliseconds
constexpr ULONGLONG kLimitInTotal = 2000; // milliseconds

struct Broadcast {
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
    ULONGLONG end;
};

BOOL CALLBACK SendToOne(HWND window, LPARAM parameter) {
    const auto& broadcast = *reinterpret_cast<const Broadcast*>(parameter);
    DWORD_PTR ignored = 0;
    SendMessageTimeoutW(window, broadcast.message, broadcast.wParam, broadcast.lParam, SMTO_ABORTIFHUNG,
                        kLimitPerWindow, &ignored);
    return GetTickCount64() < broadcast.end;
}

} // namespace

BOOL SendNotifyMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    const Broadcast broadcast{
        .message = message, .wParam = wParam, .lParam = lParam, .end = GetTickCount64() + kLimitInTotal};
    if (window == HWND_BROADCAST)
        return EnumWindows(SendToOne, reinterpret_cast<LPARAM>(&broadcast));
    return SendToOne(window, reinterpret_cast<LPARAM>(&broadcast));
}

} // namespace ce
