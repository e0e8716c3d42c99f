#pragma once

#include <cstddef>
#include <windows.h>

namespace quilla {

/// One message on its way through the toolkit. Its fields are the first four of the platform's MSG.
struct BMessage {
    BMessage(HWND receiver, UINT code, WPARAM first, LPARAM second)
        : hwnd(receiver), message(code), wParam(first), lParam(second) {}

    /// A message from the queue, for any operation that takes a BMessage.
    BMessage(const MSG& queued) : BMessage(queued.hwnd, queued.message, queued.wParam, queued.lParam) {}

    HWND hwnd; ///< The window that received the message; a reflected message keeps naming the parent.
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
};

static_assert(offsetof(BMessage, hwnd) == offsetof(MSG, hwnd));
static_assert(offsetof(BMessage, message) == offsetof(MSG, message));
static_assert(offsetof(BMessage, wParam) == offsetof(MSG, wParam));
static_assert(offsetof(BMessage, lParam) == offsetof(MSG, lParam));

} // namespace quilla
