// The commands of the main window: when they are enabled, which menus offer them and what they leave behind.

#include "tests/ui/ui_fixture.h"

#include <shellapi.h>

#include <map>

namespace quilla {
namespace {

using namespace test;

using Ids = std::vector<int>;

class CommandsTest : public UiTest {
  protected:
    CommandsTest() { OpenMainWindow(); }

    /// Ids of a menu's items and whether they are enabled.
    using Items = std::map<int, bool>;

    /// Opens a pop-up menu by an action of the user, reads it and closes it.
    Items ItemsOfMenu(const std::function<void()>& open) {
        EXPECT_TRUE(Activate(window->hwnd)); // a change of activation would close the menu at once
        items_.clear();
        const UINT_PTR timer = SetTimer(nullptr, 0, 20, ReadOpenMenu);
        open();
        PumpUntil([] { return !items_.empty(); });
        KillTimer(nullptr, timer);
        return items_;
    }

    static void CALLBACK ReadOpenMenu(HWND, UINT, UINT_PTR, DWORD) {
        constexpr UINT kGetMenuHandle = 0x01E1; // MN_GETHMENU
        const HWND popUp = FindWindowW(L"#32768", nullptr);
        if (!popUp || !items_.empty())
            return;
        const auto menu = reinterpret_cast<HMENU>(SendMessageW(popUp, kGetMenuHandle, 0, 0));
        for (int position = 0; position < GetMenuItemCount(menu); ++position) {
            const UINT state = GetMenuState(menu, static_cast<UINT>(position), MF_BYPOSITION);
            if (!(state & MF_SEPARATOR))
                items_[static_cast<int>(GetMenuItemID(menu, position))] =
                    !(state & (MF_GRAYED | MF_DISABLED));
        }
        EndMenu();
    }

    Ids EnabledVolumeCommands() {
        Ids ids;
        for (const int id : {IDM_CLOSE, IDM_DELETE, IDM_MOUNT, IDM_DISMOUNT, IDM_CHANGE_PASSWORD,
                             IDM_PROPERTIES, IDM_COPY_ADDRESS})
            if (IsCommandEnabled(id))
                ids.push_back(id);
        return ids;
    }

    static inline Items items_;
};

TEST_F(CommandsTest, AreEnabledBySelectionAndMountState) {
    AddVolume(L"a", CipherId::None);
    AddVolume(L"b", CipherId::None);
    EXPECT_EQ(EnabledVolumeCommands(), Ids{});
    Select(0);
    EXPECT_EQ(EnabledVolumeCommands(),
              (Ids{IDM_CLOSE, IDM_DELETE, IDM_MOUNT, IDM_CHANGE_PASSWORD, IDM_PROPERTIES}));
    MountRow(0);
    EXPECT_EQ(EnabledVolumeCommands(),
              (Ids{IDM_DISMOUNT, IDM_CHANGE_PASSWORD, IDM_PROPERTIES, IDM_COPY_ADDRESS}));
    Command(IDM_DELETE); // disabled: a command that arrives all the same does nothing
    EXPECT_EQ(CountRows(), 2);
    ListView_SetItemState(List(), -1, LVIS_SELECTED, LVIS_SELECTED);
    EXPECT_EQ(EnabledVolumeCommands(), Ids{}) << "two rows selected";
    for (const int id : {IDM_NEW, IDM_OPEN, IDM_EXIT, IDM_CONTENTS, IDM_ABOUT})
        EXPECT_TRUE(IsCommandEnabled(id));
}

TEST_F(CommandsTest, TheNotificationIconHasAMenuAndComesBackWithTheShell) {
    AddVolume(L"a", CipherId::None);
    const auto openMenu = [this] { SendMessageW(window->hwnd, WM_TRAYICON, 101, WM_RBUTTONUP); };
    EXPECT_EQ(ItemsOfMenu(openMenu),
              (Items{{IDM_EXIT, true}, {IDM_SHOW_WINDOW, true}, {IDM_DISMOUNT_ALL, false}}));
    MountRow(0);
    EXPECT_TRUE(ItemsOfMenu(openMenu).at(IDM_DISMOUNT_ALL));

    NOTIFYICONDATAW icon{};
    icon.cbSize = sizeof(icon);
    icon.hWnd = window->hwnd;
    icon.uID = 101;
    ASSERT_TRUE(Shell_NotifyIconW(NIM_MODIFY, &icon)) << "there is an icon";
    Shell_NotifyIconW(NIM_DELETE, &icon); // as a shell that ends forgets it
    SendMessageW(window->hwnd, RegisterWindowMessageW(L"TaskbarCreated"), 0, 0);
    EXPECT_TRUE(Shell_NotifyIconW(NIM_MODIFY, &icon));
}

TEST_F(CommandsTest, ThePopUpFollowsTheSelection) {
    AddVolume(L"a", CipherId::None);
    ShowWindow(window->hwnd, SW_SHOW);
    NMITEMACTIVATE click{};
    const auto rightClick = [&] { Notify(click, static_cast<UINT>(NM_RCLICK)); };
    const Items unmounted = {{IDM_CLOSE, true},     {IDM_DELETE, true},          {IDM_MOUNT, true},
                             {IDM_DISMOUNT, false}, {IDM_CHANGE_PASSWORD, true}, {IDM_PROPERTIES, true}};
    const Items mounted = {{IDM_CLOSE, false},         {IDM_DELETE, false},    {IDM_MOUNT, false},
                           {IDM_DISMOUNT, true},       {IDM_PROPERTIES, true}, {IDM_COPY_ADDRESS, true},
                           {IDM_CHANGE_PASSWORD, true}};
    EXPECT_EQ(ItemsOfMenu(rightClick), (Items{{IDM_NEW, true}, {IDM_OPEN, true}}));
    Select(0);
    EXPECT_EQ(ItemsOfMenu(rightClick), unmounted);
    click.uKeyFlags = LVKF_ALT;
    EXPECT_EQ(ItemsOfMenu([&] { Notify(click, static_cast<UINT>(NM_CLICK)); }), unmounted);
    MountRow(0);
    EXPECT_EQ(ItemsOfMenu([this] { SendMessageW(List(), WM_CONTEXTMENU, 0, -1); }), mounted);
}

TEST_F(CommandsTest, KeysOfTheListAreCommands) {
    AddVolume(L"a", CipherId::None);
    ShowWindow(window->hwnd, SW_SHOW);
    ASSERT_TRUE(Activate(window->hwnd));
    Select(0);
    const auto expectDialog = [this](std::initializer_list<WORD> keys, const wchar_t* title) {
        ASSERT_EQ(GetFocus(), List());
        application.Play({InDialog([&] {
            EXPECT_EQ(TextOf(OpenDialog()), title);
            Press(IDCANCEL);
        })});
        PressKeys(keys);
        EXPECT_TRUE(PumpUntil([&] { return application.PlayedToTheEnd() && GetFocus() == List(); }));
    };
    expectDialog({VK_RETURN}, L"Mount");
    expectDialog({VK_MENU, VK_RETURN}, L"Properties");
    expectDialog({VK_INSERT}, L"New");
}

TEST_F(CommandsTest, NewListsAndSavesTheVolume) {
    Command(IDM_NEW, {InDialog([&] {
                Type(IDC_VOLUME, folder.File(L"n"));
                MoveFocusTo(IDC_SIZE_VALUE);
                Press(IDOK);
            })});
    const wchar_t* const columns[] = {L"n.raw", L"1 MB", L"CAST - 128", L"n.key"};
    ASSERT_EQ(CountRows(), 1);
    for (int column = 0; column < 4; ++column)
        EXPECT_TRUE(Cell(0, column).ends_with(columns[column])) << Cell(0, column);
    CloseMainWindow();
    OpenMainWindow();
    ASSERT_EQ(CountRows(), 1);
    EXPECT_EQ(Cell(0, 0), folder.File(L"n.raw"));
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
    EXPECT_NE(copied.find(L"/SEC0-"), std::wstring::npos);

    wchar_t tip[512] = {};
    NMLVGETINFOTIPW query{};
    query.pszText = tip;
    query.cchTextMax = 512;
    Notify(query, static_cast<UINT>(LVN_GETINFOTIPW));
    EXPECT_NE(std::wstring(tip).find(L"SEC0:\n" + copied), std::wstring::npos) << tip;
}

} // namespace
} // namespace quilla
