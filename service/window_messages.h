#pragma once

#include <windows.h>

namespace quilla {

/// The notification icon's callback message; lParam is the mouse message. A second instance sends it with
/// WM_LBUTTONDBLCLK to bring the serving instance's window to the front.
inline constexpr UINT WM_TRAYICON = WM_APP + 1;

/// A request lies in the shared mapping (service/request_block.h); both parameters are zero.
inline constexpr UINT WM_REQUEST = WM_APP + 2;

static_assert(WM_TRAYICON == 0x8001 && WM_REQUEST == 0x8002);

/// Class and title by which a second instance finds the serving instance's main window.
inline constexpr wchar_t kMainWindowClass[] = L"BWindow";
inline constexpr wchar_t kMainWindowTitle[] = L"Quilla Tarn";

/// Exists while an instance runs; signalled while that instance's main window takes requests.
inline constexpr wchar_t kInstanceEventName[] = L"Orvane Quilla Tarn";

/// Held by a sender during an exchange (and never released by hand, see RequestChannel).
inline constexpr wchar_t kRequestMutexName[] = L"Orvane Quilla Tarn Remote";

/// The page-file mapping that carries one RequestBlock.
inline constexpr wchar_t kRequestMappingName[] = L"Orvane Quilla Tarn Mapping";
inline constexpr DWORD kRequestMappingSize = 4096;

} // namespace quilla
