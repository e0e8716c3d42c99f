// The commands of the main window: when they are enabled, which menus offer them and what they leave behind.

#include "tests/ui/ui_fixture.h"

#include <shellapi.h>

#include <map>

namespace quilla {
namespace {

using namespace test;

class CommandsTest : public UiTest {
  protected:
    CommandsTest() { OpenMainWindow(); }

    struct Item {
        std::wstring text;
        bool enabled;
    };
    using Items = std::map<int, Item>;

    /// Opens a pop-up menu by an action of the user, reads it and closes it.
    Items ItemsOfMenu(const std::function<void()>& open) {
        EXPECT_TRUE(Activate(window->hwnd)); // a change of activation would close the menu at once
        menu_ = nullptr;
        items_.clear();
        const UINT_PTR timer = SetTimer(nullptr, 0, 20, ReadOpenMenu);
        open();
        PumpUntil([] { return menu_ != nullptr; });
        KillTimer(nullptr, timer);
        return items_;
    }

    static void CALLBACK ReadOpenMenu(HWND, UINT, UINT_PTR, DWORD) {
        constexpr UINT kGetMenuHandle = 0x01E1; // MN_GETHMENU
        const HWND popUp = FindWindowW(L"#32768", nullptr);
        if (!popUp || menu_)
            return;
        menu_ = reinterpret_cast<HMENU>(SendMessageW(popUp, kGetMenuHandle, 0, 0));
        for (int position = 0; position < GetMenuItemCount(menu_); ++position) {
            wchar_t text[80] = {};
            GetMenuStringW(menu_, static_cast<UINT>(position), text, 80, MF_BYPOSITION);
            const UINT state = GetMenuState(menu_, static_cast<UINT>(position), MF_BYPOSITION);
            const int id = static_cast<int>(GetMenuItemID(menu_, position));
            if (id != 0)
                items_[id] = {std::wstring(text).substr(0, std::wstring(text).find(L'\t')),
                              (state & (MF_GRAYED | MF_DISABLED)) == 0};
        }
        EndMenu();
    }

    void RightClick() const {
        NMITEMACTIVATE click{};
        click.hdr = {List(), static_cast<UINT_PTR>(GetDlgCtrlID(List())), static_cast<UINT>(NM_RCLICK)};
        SendMessageW(window->hwnd, WM_NOTIFY, click.hdr.idFrom, reinterpret_cast<LPARAM>(&click));
    }

    static std::vector<int> IdsOf(const Items& items) {
        std::vector<int> ids;
        for (const auto& [id, item] : items)
            ids.push_back(id);
        return ids;
    }

    static inline HMENU menu_;
    static inline Items items_;
};

constexpr int kVolumeCommands[] = {IDM_CLOSE,           IDM_DELETE,     IDM_MOUNT,       IDM_DISMOUNT,
                                   IDM_CHANGE_PASSWORD, IDM_PROPERTIES, IDM_COPY_ADDRESS};

TEST_F(CommandsTest, AreEnabledBySelectionAndMountState) {
    AddVolume(L"a", CipherId::None);
    AddVolume(L"b", CipherId::None);
    const auto enabled = [this] {
        std::vector<int> ids;
        for (const int id : kVolumeCommands)
            if (IsCommandEnabled(id))
                ids.push_back(id);
        return ids;
    };
    const auto buttons = [this] {
        window->UpdateCommandStates();
        std::vector<int> ids;
        for (const int id : {IDM_CLOSE, IDM_DELETE, IDM_MOUNT, IDM_DISMOUNT, IDM_PROPERTIES})
            if (SendMessageW(Toolbar(), TB_ISBUTTONENABLED, static_cast<WPARAM>(id), 0))
                ids.push_back(id);
        return ids;
    };
    using Ids = std::vector<int>;

    Select(-1);
    EXPECT_EQ(enabled(), Ids{});
    EXPECT_EQ(buttons(), Ids{});
    Select(0);
    EXPECT_EQ(enabled(), (Ids{IDM_CLOSE, IDM_DELETE, IDM_MOUNT, IDM_CHANGE_PASSWORD, IDM_PROPERTIES}));
    EXPECT_EQ(buttons(), (Ids{IDM_CLOSE, IDM_DELETE, IDM_MOUNT, IDM_PROPERTIES}));
    MountRow(0);
    EXPECT_EQ(enabled(), (Ids{IDM_DISMOUNT, IDM_CHANGE_PASSWORD, IDM_PROPERTIES, IDM_COPY_ADDRESS}));
    EXPECT_EQ(buttons(), (Ids{IDM_DISMOUNT, IDM_PROPERTIES}));
    ListView_SetItemState(List(), -1, LVIS_SELECTED, LVIS_SELECTED);
    EXPECT_EQ(enabled(), Ids{}) << "two rows selected";
    for (const int id : {IDM_NEW, IDM_OPEN, IDM_EXIT, IDM_CONTENTS, IDM_ABOUT})
        EXPECT_TRUE(IsCommandEnabled(id));

    // A disabled command that arrives all the same does nothing.
    Select(0);
    Command(IDM_DELETE);
    Command(IDM_CLOSE);
    EXPECT_EQ(CountRows(), 2);
}

TEST_F(CommandsTest, TheNotificationIconHasAMenuAndComesBackWithTheShell) {
    AddVolume(L"a", CipherId::None);
    const auto openMenu = [this] { SendMessageW(window->hwnd, WM_TRAYICON, 101, WM_RBUTTONUP); };
    const Items unmounted = ItemsOfMenu(openMenu);
    EXPECT_EQ(IdsOf(unmounted), (std::vector<int>{IDM_EXIT, IDM_SHOW_WINDOW, IDM_DISMOUNT_ALL}));
    EXPECT_FALSE(unmounted.at(IDM_DISMOUNT_ALL).enabled);
    MountRow(0);
    EXPECT_TRUE(ItemsOfMenu(openMenu).at(IDM_DISMOUNT_ALL).enabled);

    NOTIFYICONDATAW icon{};
    icon.cbSize = sizeof(icon);
    icon.hWnd = window->hwnd;
    icon.uID = 101;
    ASSERT_TRUE(Shell_NotifyIconW(NIM_MODIFY, &icon)) << "there is an icon";
    Shell_NotifyIconW(NIM_DELETE, &icon); // as a shell that ends forgets it
    ASSERT_FALSE(Shell_NotifyIconW(NIM_MODIFY, &icon));
    SendMessageW(window->hwnd, RegisterWindowMessageW(L"TaskbarCreated"), 0, 0);
    EXPECT_TRUE(Shell_NotifyIconW(NIM_MODIFY, &icon));
}

TEST_F(CommandsTest, ThePopUpFollowsTheSelection) {
    AddVolume(L"a", CipherId::None);
    ShowWindow(window->hwnd, SW_SHOW);
    Select(-1);
    EXPECT_EQ(IdsOf(ItemsOfMenu([this] { RightClick(); })), (std::vector<int>{IDM_NEW, IDM_OPEN}));

    Select(0);
    const Items unmounted = ItemsOfMenu([this] { RightClick(); });
    EXPECT_EQ(IdsOf(unmounted), (std::vector<int>{IDM_CLOSE, IDM_DELETE, IDM_MOUNT, IDM_DISMOUNT,
                                                  IDM_CHANGE_PASSWORD, IDM_PROPERTIES}));
    EXPECT_EQ(unmounted.at(IDM_MOUNT).text, L"Mount...");
    EXPECT_TRUE(unmounted.at(IDM_MOUNT).enabled);
    EXPECT_FALSE(unmounted.at(IDM_DISMOUNT).enabled);

    MountRow(0);
    const Items mounted = ItemsOfMenu([this] { SendMessageW(List(), WM_CONTEXTMENU, 0, -1); });
    EXPECT_TRUE(mounted.contains(IDM_COPY_ADDRESS));
    EXPECT_FALSE(mounted.at(IDM_MOUNT).enabled || mounted.at(IDM_CLOSE).enabled);
    EXPECT_TRUE(mounted.at(IDM_DISMOUNT).enabled);

    NMITEMACTIVATE tap{};
    tap.hdr = {List(), 0, static_cast<UINT>(NM_CLICK)};
    tap.uKeyFlags = LVKF_ALT;
    EXPECT_TRUE(ItemsOfMenu([&] {
                    SendMessageW(window->hwnd, WM_NOTIFY, 0, reinterpret_cast<LPARAM>(&tap));
                }).contains(IDM_MOUNT));
}

TEST_F(CommandsTest, ADoubleClickMounts) {
    AddVolume(L"a", CipherId::None);
    Select(0);
    application.Play({InDialog([] { Press(IDOK); })});
    NMITEMACTIVATE click{};
    click.hdr = {List(), 0, static_cast<UINT>(NM_DBLCLK)};
    SendMessageW(window->hwnd, WM_NOTIFY, 0, reinterpret_cast<LPARAM>(&click));
    EXPECT_TRUE(application.PlayedToTheEnd());
    EXPECT_TRUE(RecordOf(0).IsMounted());
}

TEST_F(CommandsTest, KeysOfTheListAreCommands) {
    AddVolume(L"a", CipherId::None);
    ShowWindow(window->hwnd, SW_SHOW);
    ASSERT_TRUE(Activate(window->hwnd));
    ASSERT_EQ(GetFocus(), List());
    Select(0);
    std::vector<std::wstring> opened;
    const auto close = [&] {
        opened.push_back(TextOf(OpenDialog()));
        Press(IDCANCEL);
    };
    const auto press = [&](std::initializer_list<WORD> keys) {
        application.Play({InDialog(close)});
        PressKeys(keys);
        EXPECT_TRUE(PumpUntil([&] { return application.PlayedToTheEnd(); }));
        EXPECT_TRUE(PumpUntil([&] { return GetFocus() == List(); }));
    };
    press({VK_RETURN});
    press({VK_MENU, VK_RETURN});
    press({VK_INSERT});
    EXPECT_EQ(opened, (std::vector<std::wstring>{L"Mount", L"Properties", L"New"}));

    MessageBoxWatcher boxes(IDCANCEL);
    PressKeys({VK_DELETE});
    EXPECT_TRUE(PumpUntil([&] { return boxes.WaitForBox(std::chrono::milliseconds(1)); }));
    application.PumpPending();
    EXPECT_EQ(CountRows(), 1);
}

TEST_F(CommandsTest, DeleteAsksOnceAndNamesBothFiles) {
    const std::wstring path = AddVolume(L"a");
    const std::wstring keyPath = folder.File(L"a.key");
    Select(0);
    {
        MessageBoxWatcher boxes(IDCANCEL);
        Command(IDM_DELETE);
        const std::vector<SeenBox> seen = boxes.Take();
        ASSERT_EQ(seen.size(), 1U);
        EXPECT_EQ(seen[0].caption, L"Confirm Delete");
        EXPECT_EQ(seen[0].text, L"Are you sure you want to delete\n\n" + path + L"\n" + keyPath +
                                    L"\n\nand all the data inside?");
        EXPECT_EQ(seen[0].owner, window->hwnd);
    }
    EXPECT_EQ(CountRows(), 1);
    EXPECT_TRUE(FileExists(path) && FileExists(keyPath));

    MessageBoxWatcher boxes(IDOK);
    Command(IDM_DELETE);
    EXPECT_EQ(CountRows(), 0);
    EXPECT_FALSE(FileExists(path) || FileExists(keyPath));
}

TEST_F(CommandsTest, CloseKeepsTheFiles) {
    const std::wstring path = AddVolume(L"a");
    Select(0);
    Command(IDM_CLOSE);
    EXPECT_EQ(CountRows(), 0);
    EXPECT_TRUE(FileExists(path) && FileExists(folder.File(L"a.key")));
}

TEST_F(CommandsTest, NewListsAndSavesTheVolume) {
    Command(IDM_NEW, {InDialog([&] {
                Type(IDC_VOLUME, folder.File(L"n"));
                MoveFocusTo(IDC_SIZE_VALUE);
                Press(IDOK);
            })});
    ASSERT_EQ(CountRows(), 1);
    EXPECT_EQ(Cell(0, 0), folder.File(L"n.raw"));
    EXPECT_EQ(Cell(0, 1), L"1 MB");
    EXPECT_EQ(Cell(0, 2), L"CAST - 128");
    EXPECT_EQ(Cell(0, 3), folder.File(L"n.key"));
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
    EXPECT_TRUE(copied.starts_with(L"nbd://127.0.0.1:")) << "copied";
    EXPECT_NE(copied.find(L"/SEC0-"), std::wstring::npos);

    wchar_t tip[512] = {};
    NMLVGETINFOTIPW query{};
    query.hdr = {List(), 0, static_cast<UINT>(LVN_GETINFOTIPW)};
    query.pszText = tip;
    query.cchTextMax = 512;
    SendMessageW(window->hwnd, WM_NOTIFY, 0, reinterpret_cast<LPARAM>(&query));
    EXPECT_NE(std::wstring(tip).find(copied), std::wstring::npos);
    EXPECT_NE(std::wstring(tip).find(L"SEC0:"), std::wstring::npos);
}

TEST_F(CommandsTest, AboutNamesVersionCiphersAndKernels) {
    Command(IDM_ABOUT, {InDialog([] {
                EXPECT_EQ(FieldTextOf(IDC_ABOUT_NAME), L"Quilla Tarn 1.0.0");
                EXPECT_NE(FieldTextOf(IDC_ABOUT_COPYRIGHT).find(L"Copyright"), std::wstring::npos);
                EXPECT_NE(FieldTextOf(IDC_ABOUT_CIPHERS).find(L"Twofish - 256"), std::wstring::npos);
                EXPECT_TRUE(FieldTextOf(IDC_ABOUT_KERNELS).starts_with(L"Twofish kernel: "));
                PressKey(VK_ESCAPE);
            })});
}

} // namespace
} // namespace quilla
