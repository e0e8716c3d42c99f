#include "ui/command_bar.h"

#include "platform/win32/format_text.h"
#include "ui/resource.h"

#include <iterator>

namespace quilla {

namespace {

struct Button {
    int image;
    int command; ///< 0 = separator
    const wchar_t* tip = nullptr;
};

constexpr Button kButtons[] = {
    {0, 0},
    {STD_FILENEW, IDM_NEW, L"New"},
    {STD_FILEOPEN, IDM_OPEN, L"Open"},
    {0, 0},
    {kCloseVolumeImage, IDM_CLOSE, L"Close"},
    {STD_DELETE, IDM_DELETE, L"Delete"},
    {0, 0},
    {kFirstViewImage + VIEW_NETCONNECT, IDM_MOUNT, L"Mount"},
    {kFirstViewImage + VIEW_NETDISCONNECT, IDM_DISMOUNT, L"Dismount"},
    {0, 0},
    {STD_PROPERTIES, IDM_PROPERTIES, L"Properties"},
};
static_assert(std::size(kButtons) == 11);
static_assert(kButtons[7].image == 24 && kButtons[8].image == 25 && kButtons[4].image == 27);

const wchar_t* TipOf(int command) {
    for (const Button& button : kButtons)
        if (button.command == command && button.tip)
            return button.tip;
    return L"";
}

} // namespace

LRESULT CommandBar::OnNotify(NMHDR& header) {
    switch (header.code) {
    case static_cast<UINT>(TBN_GETINFOTIPW): {
        const auto& tip = reinterpret_cast<NMTBGETINFOTIPW&>(header);
        FormatText(std::span(tip.pszText, static_cast<std::size_t>(tip.cchTextMax)), L"%ls",
                   TipOf(tip.iItem));
        return 0;
    }
    case static_cast<UINT>(TTN_GETDISPINFOW): {
        auto& tip = reinterpret_cast<NMTTDISPINFOW&>(header);
        tip.lpszText = const_cast<wchar_t*>(TipOf(static_cast<int>(header.idFrom)));
        return 0;
    }
    default:
        return BToolbar::OnNotify(header);
    }
}

void CommandBar::AddButtons() {
    SendMessageW(hwnd, TB_BUTTONSTRUCTSIZE, sizeof(TBBUTTON), 0);
    LoadImages();

    TBBUTTON buttons[std::size(kButtons)]{};
    for (std::size_t i = 0; i < std::size(kButtons); ++i) {
        buttons[i].iBitmap = kButtons[i].image;
        buttons[i].idCommand = kButtons[i].command;
        buttons[i].fsState = TBSTATE_ENABLED;
        buttons[i].fsStyle = kButtons[i].command ? BTNS_BUTTON : BTNS_SEP;
        if (kNamesButtons)
            buttons[i].iString = reinterpret_cast<INT_PTR>(kButtons[i].tip);
    }
    SendMessageW(hwnd, TB_ADDBUTTONSW, std::size(buttons), reinterpret_cast<LPARAM>(buttons));
    LayOutButtons();
}

} // namespace quilla
