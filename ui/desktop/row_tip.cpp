#include "ui/row_tip.h"

#include <climits>
#include <iterator>

namespace quilla {

void RowTip::CreateFor(HWND list) {
    list_ = list;
    ListView_SetExtendedListViewStyleEx(list, LVS_EX_INFOTIP, 0);
    ListView_SetToolTips(list, nullptr);
    Attach(CreateWindowExW(WS_EX_TOPMOST, TOOLTIPS_CLASSW, nullptr, WS_POPUP | TTS_NOPREFIX | TTS_ALWAYSTIP,
                           CW_USEDEFAULT, CW_USEDEFAULT, CW_USEDEFAULT, CW_USEDEFAULT, list, nullptr,
                           GetModuleHandleW(nullptr), nullptr));
    TTTOOLINFOW tool = Tool();
    tool.lpszText = LPSTR_TEXTCALLBACKW;
    SendMessageW(hwnd, TTM_ADDTOOLW, 0, reinterpret_cast<LPARAM>(&tool));
    SendMessageW(hwnd, TTM_SETMAXTIPWIDTH, 0, SHRT_MAX); // or it has one line
}

TTTOOLINFOW RowTip::Tool() const {
    TTTOOLINFOW tool{};
    tool.cbSize = TTTOOLINFOW_V1_SIZE;
    tool.uFlags = TTF_TRANSPARENT; // or the tip of a row hides the next one from the pointer
    tool.hwnd = list_;
    return tool;
}

void RowTip::Follow(const MSG& message) {
    if (!hwnd || message.message < WM_MOUSEFIRST || message.message > WM_MOUSELAST)
        return;
    if (message.message == WM_MOUSEMOVE) {
        LVHITTESTINFO hit{};
        hit.pt = {static_cast<short>(LOWORD(message.lParam)), static_cast<short>(HIWORD(message.lParam))};
        const int row = ListView_SubItemHitTest(list_, &hit);
        if (row != row_) {
            row_ = row;
            TTTOOLINFOW tool = Tool();
            if (row >= 0)
                ListView_GetItemRect(list_, row, &tool.rect, LVIR_BOUNDS);
            SendMessageW(hwnd, TTM_POP, 0, 0);
            SendMessageW(hwnd, TTM_NEWTOOLRECTW, 0, reinterpret_cast<LPARAM>(&tool));
        }
    }
    MSG relayed = message;
    SendMessageW(hwnd, TTM_RELAYEVENT, 0, reinterpret_cast<LPARAM>(&relayed));
}

LRESULT RowTip::OnNotify(NMHDR& header) {
    if (header.code != TTN_GETDISPINFOW)
        return BWindow::OnNotify(header);
    text_[0] = 0;
    NMLVGETINFOTIPW question{};
    question.hdr = {list_, static_cast<UINT_PTR>(GetDlgCtrlID(list_)), static_cast<UINT>(LVN_GETINFOTIPW)};
    question.pszText = text_;
    question.cchTextMax = static_cast<int>(std::size(text_));
    question.iItem = row_;
    if (row_ >= 0 && row_ < ListView_GetItemCount(list_))
        SendMessageW(GetParent(list_), WM_NOTIFY, question.hdr.idFrom, reinterpret_cast<LPARAM>(&question));
    reinterpret_cast<NMTTDISPINFOW&>(header).lpszText = text_;
    return 0;
}

} // namespace quilla
