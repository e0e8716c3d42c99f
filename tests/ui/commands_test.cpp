// The commands of the main window: when they are enabled, which menus offer them and what they leave behind.

#include "tests/ui/ui_fixture.h"

#include <map>
#include <shellapi.h>
#include <wtsapi32.h>

namespace quilla {
namespace {

using namespace test;

class CommandsTest : public UiTest {
  protected:
    CommandsTest() { OpenMainWindow(); }

    static constexpr int kSubmenu = -1;

    /// Ids of a menu's items and whether they are enabled.
    using Items = std::map<int, bool>;

    /// Opens a pop-up menu by an action of the user, reads it and closes it.
    Items ItemsOfMenu(const std::function<void()>& open) {
        EXPECT_TRUE(Activate(window->hwnd)); // a change of activation would close the menu at once
        Items items;
        const Meanwhile read([&] {
            constexpr UINT kGetMenuHandle = 0x01E1; // MN_GETHMENU
            const HWND popUp = FindWindowW(L"#32768", nullptr);
            const auto menu = reinterpret_cast<HMENU>(SendMessageW(popUp, kGetMenuHandle, 0, 0));
            for (int position = 0; position < GetMenuItemCount(menu); ++position) {
                const UINT state = GetMenuState(menu, static_cast<UINT>(position), MF_BYPOSITION);
                if (!(state & MF_SEPARATOR))
                    items[static_cast<int>(GetMenuItemID(menu, position))] = !(state & MF_GRAYED);
            }
            return popUp && EndMenu();
        });
        open();
        return items;
    }

    /// The toolbar's buttons that can be pressed, of those that depend on the selection.
    std::vector<int> EnabledButtons() {
        window->UpdateCommandStates();
        std::vector<int> ids;
        for (const int id : {IDM_CLOSE, IDM_DELETE, IDM_MOUNT, IDM_DISMOUNT, IDM_PROPERTIES})
            if (SendMessageW(Toolbar(), TB_ISBUTTONENABLED, static_cast<WPARAM>(id), 0))
                ids.push_back(id);
        return ids;
    }
};

TEST_F(CommandsTest, TheToolbarFollowsTheSelection) {
    using Ids = std::vector<int>;
    AddVolume(L"a", CipherId::None);
    AddVolume(L"b", CipherId::None);
    EXPECT_EQ(EnabledButtons(), Ids{});
    Select(0);
    EXPECT_EQ(EnabledButtons(), (Ids{IDM_CLOSE, IDM_DELETE, IDM_MOUNT, IDM_PROPERTIES}));
    MountRow(0);
    EXPECT_EQ(EnabledButtons(), (Ids{IDM_DISMOUNT, IDM_PROPERTIES}));
    Command(IDM_CLOSE); // disabled: a command that arrives all the same does nothing
    EXPECT_EQ(CountRows(), 2);
    SendMessageW(List(), WM_CHAR, 'B', 1);
    EXPECT_EQ(EnabledButtons(), (Ids{IDM_CLOSE, IDM_DELETE, IDM_MOUNT, IDM_PROPERTIES}))
        << "found by its name";
    Command(IDM_CLOSE);
    EXPECT_EQ(EnabledButtons(), (Ids{IDM_DISMOUNT, IDM_PROPERTIES})) << "its neighbour is selected";
}

TEST_F(CommandsTest, ThePopUpFollowsTheSelection) {
    AddVolume(L"a", CipherId::None);
    ShowWindow(window->hwnd, SW_SHOW);
    NMITEMACTIVATE click{};
    const auto rightClick = [&] { Notify(click, static_cast<UINT>(NM_RCLICK)); };
    const Items unmounted = {{IDM_CLOSE, true},     {IDM_DELETE, true},          {IDM_MOUNT, true},
                             {IDM_DISMOUNT, false}, {IDM_CHANGE_PASSWORD, true}, {IDM_PROPERTIES, true}};
    const Items mounted = {{IDM_CLOSE, false},          {IDM_DELETE, false},     {IDM_MOUNT, false},
                           {IDM_DISMOUNT, true},        {IDM_PROPERTIES, true},  {IDM_COPY_ADDRESS, true},
                           {IDM_CHANGE_PASSWORD, true}, {IDM_ATTACH_DRIVE, true}};
    EXPECT_EQ(ItemsOfMenu(rightClick), (Items{{IDM_NEW, true}, {IDM_OPEN, true}}));
    Select(0);
    EXPECT_EQ(ItemsOfMenu(rightClick), unmounted);
    click.uKeyFlags = LVKF_ALT;
    EXPECT_EQ(ItemsOfMenu([&] { Notify(click, static_cast<UINT>(NM_CLICK)); }), unmounted);
    MountRow(0);
    EXPECT_EQ(ItemsOfMenu([this] { SendMessageW(List(), WM_CONTEXTMENU, 0, -1); }), mounted);
}

TEST_F(CommandsTest, TheNotificationIconHasAMenuAndComesBackWithTheShell) {
    AddVolume(L"a", CipherId::None);
    const auto openMenu = [this] { SendMessageW(window->hwnd, WM_TRAYICON, 101, WM_RBUTTONUP); };
    EXPECT_EQ(ItemsOfMenu(openMenu), (Items{{kSubmenu, true},
                                            {IDM_EXIT, true},
                                            {IDM_SHOW_WINDOW, true},
                                            {IDM_DISMOUNT_ALL, false},
                                            {IDM_ATTACH_AFTER_MOUNTING, true}}));
    MountRow(0);
    const Items mounted = {{kSubmenu, true},
                           {IDM_DISMOUNT_EXIT, true},
                           {IDM_SHOW_WINDOW, true},
                           {IDM_DISMOUNT_ALL, true},
                           {IDM_ATTACH_AFTER_MOUNTING, true}};
    EXPECT_EQ(ItemsOfMenu(openMenu), mounted);

    NOTIFYICONDATAW icon{};
    icon.cbSize = sizeof(icon);
    icon.hWnd = window->hwnd;
    icon.uID = 101;
    ASSERT_TRUE(Shell_NotifyIconW(NIM_MODIFY, &icon)) << "there is an icon";
    Shell_NotifyIconW(NIM_DELETE, &icon); // as a shell that ends forgets it
    SendMessageW(window->hwnd, RegisterWindowMessageW(L"TaskbarCreated"), 0, 0);
    EXPECT_TRUE(Shell_NotifyIconW(NIM_MODIFY, &icon));
}

TEST_F(CommandsTest, DismountsOnTheOccasionsThatAreChosen) {
    const struct {
        UINT message;
        WPARAM event;
        int command;
        bool isChosenAtFirst;
    } occasions[] = {{WM_ENDSESSION, TRUE, IDM_ON_LOG_OFF, true},
                     {WM_POWERBROADCAST, PBT_APMSUSPEND, IDM_ON_SUSPEND, false},
                     {WM_WTSSESSION_CHANGE, WTS_SESSION_LOCK, IDM_ON_LOCK, false}};
    AddVolume(L"a", CipherId::None);
    for (const auto& occasion : occasions) {
        const auto isDismounted = [&] {
            if (!RecordOf(0).IsMounted())
                MountRow(0);
            SendMessageW(window->hwnd, occasion.message, occasion.event, 0);
            return !RecordOf(0).IsMounted();
        };
        EXPECT_EQ(isDismounted(), occasion.isChosenAtFirst) << occasion.command;
        Command(occasion.command);
        CloseMainWindow();
        OpenMainWindow(); // the choice is kept
        AddVolume(L"a", CipherId::None);
        EXPECT_NE(isDismounted(), occasion.isChosenAtFirst) << occasion.command;
    }
}

/// Numbers and texts that users and scripts know by heart.
TEST_F(CommandsTest, MenusAndKeysAreThoseOfTheHelpPage) {
    const struct {
        int id;
        const wchar_t* text;
    } items[] = {{IDM_NEW, L"New...\t"},
                 {IDM_OPEN, L"Open..."},
                 {IDM_CLOSE, L"Close"},
                 {IDM_DELETE, L"Delete...\t"},
                 {IDM_EXIT, L"Exit"},
                 {IDM_MOUNT, L"Mount...\t"},
                 {IDM_DISMOUNT, L"Dismount"},
                 {IDM_CHANGE_PASSWORD, L"Change Password..."},
                 {IDM_PROPERTIES, L"Properties...\t"},
                 {IDM_COPY_ADDRESS, L"Copy Address"},
                 {IDM_CONTENTS, L"Contents\t"},
                 {IDM_ABOUT, L"About..."}};
    for (const auto& item : items) {
        wchar_t text[64] = {};
        GetMenuStringW(GetMenu(window->hwnd), static_cast<UINT>(item.id), text, 64, MF_BYCOMMAND);
        EXPECT_TRUE(std::wstring(text).starts_with(item.text)) << item.text; // keys have names of a keyboard
    }
    const std::pair<int, const wchar_t*> buttons[] = {{IDM_NEW, L"New"},     {IDM_OPEN, L"Open"},
                                                      {IDM_CLOSE, L"Close"}, {IDM_DELETE, L"Delete"},
                                                      {IDM_MOUNT, L"Mount"}, {IDM_DISMOUNT, L"Dismount"}};
    for (const auto& [id, tip] : buttons) {
        wchar_t text[64] = {};
        NMTBGETINFOTIPW query{};
        query.hdr = {Toolbar(), 0, static_cast<UINT>(TBN_GETINFOTIPW)};
        query.iItem = id;
        query.pszText = text;
        query.cchTextMax = 64;
        SendMessageW(window->hwnd, WM_NOTIFY, 0, reinterpret_cast<LPARAM>(&query));
        EXPECT_STREQ(text, tip);
    }
    const wchar_t* const columns[] = {L"Volume", L"Size", L"Encryption", L"Key", L"State"};
    for (int column = 0; column < 5; ++column) {
        wchar_t title[32] = {};
        LVCOLUMNW query{};
        query.mask = LVCF_TEXT;
        query.pszText = title;
        query.cchTextMax = 32;
        ListView_GetColumn(List(), column, &query);
        EXPECT_STREQ(title, columns[column]);
    }
}

TEST_F(CommandsTest, CopiesTheAddressOfAMountedVolume) {
    AddVolume(L"a", CipherId::None);
    MountRow(0);
    Command(IDM_COPY_ADDRESS);
    ASSERT_TRUE(OpenClipboard(nullptr));
    const HANDLE memory = GetClipboardData(CF_UNICODETEXT);
    const std::wstring copied = memory ? static_cast<const wchar_t*>(GlobalLock(memory)) : L"";
    CloseClipboard();
    EXPECT_TRUE(copied.starts_with(L"nbd://127.0.0.1:")) << copied;

    wchar_t tip[512] = {};
    NMLVGETINFOTIPW query{};
    query.pszText = tip;
    query.cchTextMax = 512;
    Notify(query, static_cast<UINT>(LVN_GETINFOTIPW));
    EXPECT_TRUE(std::wstring(tip).ends_with(L"SEC0:\n" + copied)) << tip;
}

} // namespace
} // namespace quilla
