#pragma once

#include <windows.h>

namespace quilla {

/// The notification icon's callback message; lParam is the mouse message. A second instance sends it with
/// WM_LBUTTONDBLCLK to bring the serving instance's window to the front.
inline constexpr UINT WM_TRAYICON = WM_APP + 1;

/// A request lies in the shared mapping (service/request_block.h); both parameters are zero.
inline constexpr UINT WM_REQUEST = WM_APP + 2;

/// Sent by the list to its parent when the pop-up menu is to open; lParam is the point on the screen, packed
/// as in mouse messages.
inline constexpr UINT WM_LISTMENU = WM_APP + 3;

/// Posted by the main window to itself when errors wait to be shown; both parameters are zero.
inline constexpr UINT WM_SHOWERRORS = WM_APP + 4;

/// Posted to the main window when a volume's slow part of a dismount is over; both parameters are zero.
inline constexpr UINT WM_DETACHED = WM_APP + 5;

static_assert(WM_TRAYICON == 0x8001 && WM_REQUEST == 0x8002);

/// Class and title by which a second instance finds the serving instance's main window.
inline constexpr wchar_t kMainWindowClass[] = L"BWindow";
inline constexpr wchar_t kMainWindowTitle[] = L"Quilla Tarn";

/// Exists while an instance runs; signalled while that instance's main window takes requests.
inline constexpr wchar_t kInstanceEventName[] = L"Orvane Quilla Tarn";

/// Owned by the serving instance for as long as it lives, so that whoever waits for it sees it end.
inline constexpr wchar_t kServingMutexName[] = L"Orvane Quilla Tarn Serving";

/// Owned on a sender's behalf during an exchange (and never released by hand, see RequestTurn).
inline constexpr wchar_t kRequestMutexName[] = L"Orvane Quilla Tarn Remote";

/// The page-file mapping that carries one RequestBlock.
inline constexpr wchar_t kRequestMappingName[] = L"Orvane Quilla Tarn Mapping";
inline constexpr DWORD kRequestMappingSize = 4096;

} // namespace quilla
