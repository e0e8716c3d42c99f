#pragma once

#include <cstddef>
#include <type_traits>
#include <windows.h>

namespace quilla {

/// A window message on its way through the toolkit. It begins as the platform's MSG does, so that a message
/// from the queue can be handed to anything that takes one of these.
struct BMessage {
    HWND hwnd; ///< the window that received the message
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
};

static_assert(offsetof(BMessage, hwnd) == offsetof(MSG, hwnd));
static_assert(offsetof(BMessage, message) == offsetof(MSG, message));
static_assert(offsetof(BMessage, wParam) == offsetof(MSG, wParam));
static_assert(offsetof(BMessage, lParam) == offsetof(MSG, lParam));

} // namespace quilla
