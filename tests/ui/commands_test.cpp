// The commands of the main window: when they are enabled, which menus offer them and what they leave behind.

#include "tests/export/nbd/nbd_client.h"
#include "tests/support/export_address.h"
#include "tests/ui/ui_fixture.h"

#include <filesystem>
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

    [[nodiscard]] RECT RowPlace(int row) const {
        RECT place{};
        ListView_GetItemRect(List(), row, &place, LVIR_LABEL);
        MapWindowPoints(List(), nullptr, reinterpret_cast<POINT*>(&place), 2);
        return place;
    }

    /// A click of the mouse with the Alt key held.
    void AltClick(int row) {
        const RECT place = RowPlace(row);
        SetCursorPos(place.left + 5, place.top + 5);
        keybd_event(VK_MENU, 0, 0, 0);
        for (const DWORD button : {MOUSEEVENTF_LEFTDOWN, MOUSEEVENTF_LEFTUP})
            mouse_event(button, 0, 0, 0, 0);
        PumpUntil([] { return !Meanwhile::IsWaiting(); });
        keybd_event(VK_SHIFT, 0, 0, 0); // or Alt alone would open the menu bar
        keybd_event(VK_SHIFT, 0, KEYEVENTF_KEYUP, 0);
        keybd_event(VK_MENU, 0, KEYEVENTF_KEYUP, 0);
        application.PumpPending();
    }

    /// The tip that shows while the pointer rests at a place of the screen.
    std::wstring TipAt(LONG x, LONG y) {
        SetCursorPos(1, 1);
        const auto shown = [] {
            HWND tip = nullptr;
            do
                tip = FindWindowExW(nullptr, tip, TOOLTIPS_CLASSW, nullptr);
            while (tip && !IsWindowVisible(tip));
            return tip;
        };
        PumpUntil([&] { return !shown(); });
        SetCursorPos(x, y);
        PumpUntil([&] { return shown() != nullptr; });
        return TextOf(shown());
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
    EXPECT_EQ(ItemsOfMenu([this] { AltClick(0); }), unmounted);
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
    constexpr int kViewImages = 15, kOwnImage = 27; // behind the platform's standard and view images
    const std::pair<int, int> buttons[] = {{0, 0},
                                           {STD_FILENEW, IDM_NEW},
                                           {STD_FILEOPEN, IDM_OPEN},
                                           {0, 0},
                                           {kOwnImage, IDM_CLOSE},
                                           {STD_DELETE, IDM_DELETE},
                                           {0, 0},
                                           {kViewImages + VIEW_NETCONNECT, IDM_MOUNT},
                                           {kViewImages + VIEW_NETDISCONNECT, IDM_DISMOUNT},
                                           {0, 0},
                                           {STD_PROPERTIES, IDM_PROPERTIES}};
    for (WPARAM index = 0; index < std::size(buttons); ++index) {
        TBBUTTON button{};
        SendMessageW(Toolbar(), TB_GETBUTTON, index, reinterpret_cast<LPARAM>(&button));
        EXPECT_EQ(button.idCommand, buttons[index].second);
        EXPECT_TRUE(!button.idCommand || button.iBitmap == buttons[index].first) << index;
    }
    const std::pair<const wchar_t*, int> columns[] = {
        {L"Volume", 160}, {L"Size", 60}, {L"Encryption", 100}, {L"Key", 160}, {L"State", 0}};
    for (int column = 0; column < 5; ++column) {
        wchar_t title[32] = {};
        LVCOLUMNW query{};
        query.mask = LVCF_TEXT | LVCF_WIDTH;
        query.pszText = title;
        query.cchTextMax = 32;
        ListView_GetColumn(List(), column, &query);
        EXPECT_STREQ(title, columns[column].first);
        EXPECT_TRUE(column == 4 || query.cx == columns[column].second)
            << column; // the last one fills the window
    }
}

/// Real keys: one press opens the help once, though some systems send WM_HELP besides.
TEST_F(CommandsTest, KeysOpenHelpAndDialogs) {
    AddVolume(L"a");
    Select(0);
    ShowWindow(window->hwnd, SW_SHOW);
    ASSERT_TRUE(Activate(window->hwnd));
    const auto press = [](BYTE key) {
        keybd_event(key, 0, 0, 0);
        keybd_event(key, 0, KEYEVENTF_KEYUP, 0);
    };
    wchar_t program[MAX_PATH];
    GetModuleFileNameW(nullptr, program, MAX_PATH);
    const std::filesystem::path beside = std::filesystem::path(program).parent_path();
    const std::filesystem::path viewer = beside / "PegHelp.exe";
    const std::filesystem::path seen = beside / "seen"; // written by it
    ASSERT_TRUE(CopyFileW((beside / "powershell.exe").c_str(), viewer.c_str(), FALSE));
    std::error_code ignored; // of a file that is being written still
    std::filesystem::remove(seen, ignored);
    const auto isOpened = [&] { return std::filesystem::remove(seen, ignored); };
    const auto isOpenedWithin = [&](int milliseconds) {
        bool isOpen = false;
        for (int i = 0; i < milliseconds / 20 && !isOpen; ++i) {
            application.PumpPending();
            Sleep(20);
            isOpen = isOpened();
        }
        return isOpen;
    };
    press(VK_F1);
    EXPECT_TRUE(isOpenedWithin(10'000));
    EXPECT_FALSE(isOpenedWithin(1'000)) << "once";
    Command(IDM_CONTENTS);
    EXPECT_TRUE(isOpenedWithin(10'000));
    SendMessageW(window->hwnd, WM_HELP, 0, 0);
    EXPECT_TRUE(isOpenedWithin(10'000));
    for (int i = 0; i < 100 && !std::filesystem::remove(viewer, ignored); ++i)
        Sleep(20); // it is about to end

    const auto titleAfter = [&](const std::function<void()>& action) {
        std::wstring title;
        application.Play({InDialog([&] {
            title = TextOf(FindOpenDialog());
            Press(IDCANCEL);
        })});
        action();
        PumpUntil([&] { return application.PlayedToTheEnd(); });
        return title;
    };
    EXPECT_EQ(titleAfter([&] { Command(IDM_ABOUT); }), L"About Quilla Tarn");
    EXPECT_EQ(titleAfter([&] { press(VK_RETURN); }), L"Mount");
    EXPECT_EQ(titleAfter([&] { press(VK_INSERT); }), L"New");
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

    ShowWindow(window->hwnd, SW_SHOW);
    ASSERT_TRUE(Activate(window->hwnd));
    const RECT row = RowPlace(0);
    EXPECT_EQ(TipAt(row.left + 5, row.top + 5), RecordOf(0).Path + (L"\nMounted as SEC0:\n" + copied));
    RECT button{};
    SendMessageW(Toolbar(), TB_GETRECT, IDM_CLOSE, reinterpret_cast<LPARAM>(&button));
    MapWindowPoints(Toolbar(), nullptr, reinterpret_cast<POINT*>(&button), 2);
    EXPECT_EQ(TipAt(button.left + 5, button.top + 5), L"Close");
}

TEST_F(CommandsTest, ADismountAsksForWhomItWouldCutOff) {
    AddVolume(L"a", CipherId::None);
    MountRow(0);
    const Address address(*ReadSmallFile(UriFile(0)));
    NbdClient client(address.port);
    ASSERT_TRUE(client.Enter(address.name));
    MessageBoxWatcher boxes(IDCANCEL);
    Command(IDM_DISMOUNT);
    const std::vector<SeenBox> seen = boxes.Take();
    ASSERT_EQ(seen.size(), 1U);
    EXPECT_TRUE(RecordOf(0).IsMounted());
    const std::wstring process = L", ui_test.exe (process " + std::to_wstring(GetCurrentProcessId()) + L")\n";
    EXPECT_NE(seen[0].text.find(L"\n127.0.0.1:"), std::wstring::npos) << seen[0].text;
    EXPECT_NE(seen[0].text.find(process), std::wstring::npos) << seen[0].text;
}

} // namespace
} // namespace quilla
