// The main window as a window: what it is made of, its life, and what it keeps for the next start.

#include "tests/ui/ui_fixture.h"

#include <shellapi.h>
#include <shlobj.h>

namespace quilla {
namespace {

using namespace test;

class MainWindowTest : public UiTest {
  protected:
    static std::wstring MenuText(HMENU menu, int position) {
        wchar_t text[80] = {};
        GetMenuStringW(menu, static_cast<UINT>(position), text, 80, MF_BYPOSITION);
        return std::wstring(text).substr(0, std::wstring(text).find(L'\t'));
    }

    void ClickColumn(int column) const {
        NMLISTVIEW click{};
        click.hdr = {List(), 0, static_cast<UINT>(LVN_COLUMNCLICK)};
        click.iItem = -1;
        click.iSubItem = column;
        SendMessageW(window->hwnd, WM_NOTIFY, 0, reinterpret_cast<LPARAM>(&click));
    }
};

TEST_F(MainWindowTest, HasMenusToolbarAndList) {
    OpenMainWindow();
    EXPECT_EQ(TextOf(window->hwnd), L"Quilla Tarn");
    EXPECT_EQ(FindWindowW(L"BWindow", L"Quilla Tarn"), window->hwnd);
    EXPECT_FALSE(IsWindowVisible(window->hwnd));

    const HMENU bar = GetMenu(window->hwnd);
    const struct {
        const wchar_t* title;
        std::vector<std::pair<const wchar_t*, int>> items; // no text: a separator
    } menus[] = {
        {L"File",
         {{L"New...", 1001},
          {L"Open...", 1002},
          {L"", 0},
          {L"Close", 1003},
          {L"Delete...", 1004},
          {L"", 0},
          {L"Exit", 1005}}},
        {L"Volume",
         {{L"Mount...", 1006},
          {L"Dismount", 1007},
          {L"", 0},
          {L"Change Password...", 1008},
          {L"Properties...", 1009}}},
        {L"Help", {{L"Contents", 1010}, {L"", 0}, {L"About...", 1012}}},
    };
    ASSERT_EQ(GetMenuItemCount(bar), 3);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(MenuText(bar, i), menus[i].title);
        const HMENU menu = GetSubMenu(bar, i);
        ASSERT_EQ(GetMenuItemCount(menu), static_cast<int>(menus[i].items.size()));
        for (int j = 0; j < GetMenuItemCount(menu); ++j) {
            const auto& [text, id] = menus[i].items[static_cast<std::size_t>(j)];
            EXPECT_EQ(MenuText(menu, j), text);
            EXPECT_EQ(GetMenuItemID(menu, j), static_cast<UINT>(id));
        }
    }

    constexpr int kButtons[11] = {0, 1001, 1002, 0, 1003, 1004, 0, 1006, 1007, 0, 1009};
    constexpr int kImages[11] = {-1, 6, 7, -1, 27, 5, -1, 24, 25, -1, 10};
    ASSERT_EQ(SendMessageW(Toolbar(), TB_BUTTONCOUNT, 0, 0), 11);
    for (int i = 0; i < 11; ++i) {
        TBBUTTON button{};
        SendMessageW(Toolbar(), TB_GETBUTTON, static_cast<WPARAM>(i), reinterpret_cast<LPARAM>(&button));
        EXPECT_EQ(button.idCommand, kButtons[i]);
        if (kButtons[i])
            EXPECT_EQ(button.iBitmap, kImages[i]);
        else
            EXPECT_EQ(button.fsStyle, BTNS_SEP);
    }

    constexpr int kWidths[] = {160, 60, 100, 160};
    const wchar_t* const titles[] = {L"Volume", L"Size", L"Encryption", L"Key"};
    for (int i = 0; i < 4; ++i) {
        wchar_t title[32] = {};
        LVCOLUMNW column{};
        column.mask = LVCF_TEXT | LVCF_WIDTH | LVCF_FMT;
        column.pszText = title;
        column.cchTextMax = 32;
        ListView_GetColumn(List(), i, &column);
        EXPECT_STREQ(title, titles[i]);
        EXPECT_EQ(column.cx, kWidths[i]);
        EXPECT_EQ(column.fmt & LVCFMT_JUSTIFYMASK, LVCFMT_LEFT);
    }
    EXPECT_TRUE(ListView_GetExtendedListViewStyle(List()) & LVS_EX_FULLROWSELECT);
}

TEST_F(MainWindowTest, TheListFollowsTheWindow) {
    OpenMainWindow();
    for (const int width : {400, 700}) {
        SetWindowPos(window->hwnd, nullptr, 0, 0, width, 300, SWP_NOMOVE | SWP_NOZORDER);
        RECT client;
        GetClientRect(window->hwnd, &client);
        RECT list;
        RECT bar;
        GetWindowRect(List(), &list);
        GetWindowRect(Toolbar(), &bar);
        MapWindowPoints(nullptr, window->hwnd, reinterpret_cast<POINT*>(&list), 2);
        MapWindowPoints(nullptr, window->hwnd, reinterpret_cast<POINT*>(&bar), 2);
        EXPECT_EQ(list.left, -1);
        EXPECT_EQ(list.top, bar.bottom);
        EXPECT_EQ(list.right, client.right + 1);
        EXPECT_EQ(list.bottom, client.bottom + 1);
    }
}

TEST_F(MainWindowTest, MountedRowsCarryTheMark) {
    OpenMainWindow();
    AddVolume(L"a", CipherId::None);
    const auto image = [this] {
        LVITEMW item{};
        item.mask = LVIF_IMAGE;
        ListView_GetItem(List(), &item);
        return item.iImage;
    };
    EXPECT_LT(image(), 0);
    MountRow(0);
    EXPECT_EQ(image(), 0);
    Command(IDM_DISMOUNT);
    EXPECT_LT(image(), 0);
}

TEST_F(MainWindowTest, HidesWhileAVolumeIsMountedAndClosesAfterwards) {
    OpenMainWindow();
    AddVolume(L"a", CipherId::None);
    ShowWindow(window->hwnd, SW_SHOW);
    MountRow(0);
    Command(IDM_EXIT);
    ASSERT_NE(window->hwnd, nullptr);
    EXPECT_FALSE(IsWindowVisible(window->hwnd));
    EXPECT_EQ(WaitForSingleObject(instanceEvent.Get(), 0), WAIT_OBJECT_0);

    SendMessageW(window->hwnd, WM_TRAYICON, 101, WM_MOUSEMOVE);
    SendMessageW(window->hwnd, WM_TRAYICON, 101, WM_LBUTTONDOWN);
    EXPECT_FALSE(IsWindowVisible(window->hwnd));
    SendMessageW(window->hwnd, WM_TRAYICON, 101, WM_LBUTTONDBLCLK);
    EXPECT_TRUE(IsWindowVisible(window->hwnd));

    Command(IDM_DISMOUNT_ALL);
    EXPECT_FALSE(RecordOf(0).IsMounted());
    SendMessageW(window->hwnd, WM_CLOSE, 0, 0);
    EXPECT_EQ(window->hwnd, nullptr);
    EXPECT_EQ(WaitForSingleObject(instanceEvent.Get(), 0), DWORD{WAIT_TIMEOUT}) << "no longer serving";
    EXPECT_EQ(application.Run(), 0) << "the end of the window is the end of the loop";
}

TEST_F(MainWindowTest, ClosingWaitsForAnOpenDialog) {
    OpenMainWindow();
    ShowWindow(window->hwnd, SW_SHOW);
    Command(IDM_NEW, {InDialog([this] {
                SendMessageW(window->hwnd, WM_CLOSE, 0, 0);
                EXPECT_TRUE(IsDialogOpen());
                ASSERT_NE(window->hwnd, nullptr);
                Press(IDCANCEL);
            })});
    EXPECT_NE(window->hwnd, nullptr);
}

TEST_F(MainWindowTest, ComesBackAsItWasLeft) {
    OpenMainWindow();
    AddVolume(L"b", CipherId::None, L"", 2048);
    AddVolume(L"a", CipherId::None, L"", 1024);
    SetWindowPos(window->hwnd, nullptr, 33, 44, 555, 333, SWP_NOZORDER);
    ListView_SetColumnWidth(List(), 0, 222);
    ListView_SetColumnWidth(List(), 3, 99);
    ClickColumn(1);
    EXPECT_EQ(Cell(0, 0), folder.File(L"a.raw"));
    ClickColumn(1);
    EXPECT_EQ(Cell(0, 0), folder.File(L"b.raw"));
    Command(IDM_CLOSE); // nothing selected: nothing happens
    Select(1);
    Command(IDM_CLOSE); // saves the list
    AddVolume(L"c", CipherId::None, L"", 4096);
    EXPECT_EQ(Cell(0, 0), folder.File(L"c.raw")) << "rows that come take their place in the order";
    CloseMainWindow();

    OpenMainWindow();
    RECT place;
    GetWindowRect(window->hwnd, &place);
    EXPECT_EQ(place.left, 33);
    EXPECT_EQ(place.top, 44);
    EXPECT_EQ(place.right - place.left, 555);
    EXPECT_EQ(place.bottom - place.top, 333);
    EXPECT_EQ(ListView_GetColumnWidth(List(), 0), 222);
    EXPECT_EQ(ListView_GetColumnWidth(List(), 3), 99);
    AddVolume(L"d", CipherId::None, L"", 8192);
    EXPECT_EQ(Cell(0, 0), folder.File(L"d.raw"));

    HKEY volumes = nullptr;
    ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, L"Software\\Orvane\\Quilla\\Volumes", 0, KEY_READ, &volumes),
              0);
    DWORD values = 0;
    RegQueryInfoKeyW(volumes, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &values, nullptr, nullptr,
                     nullptr, nullptr);
    RegCloseKey(volumes);
    EXPECT_EQ(values, 1U) << "nothing but volumes in the list's own key";
}

TEST_F(MainWindowTest, APlaceOffTheScreenIsNotTakenUp) {
    WindowSettings settings;
    settings.hasPlace = true;
    settings.place = {30000, 30000, 30400, 30300};
    SaveWindowSettings(settings);
    OpenMainWindow();
    RECT place;
    GetWindowRect(window->hwnd, &place);
    EXPECT_LT(place.left, GetSystemMetrics(SM_CXSCREEN));
}

TEST_F(MainWindowTest, GrowsWithTheResolution) {
    WindowSettings settings;
    settings.hasPlace = true;
    settings.place = {10, 20, 310, 220};
    settings.dpi = 48;
    SaveWindowSettings(settings);
    OpenMainWindow();
    RECT place;
    GetWindowRect(window->hwnd, &place);
    const int dpi = static_cast<int>(GetDpiForWindow(window->hwnd));
    EXPECT_EQ(place.right - place.left, MulDiv(300, dpi, 48));
    EXPECT_EQ(place.bottom - place.top, MulDiv(200, dpi, 48));
}

TEST_F(MainWindowTest, TakesDroppedVolumes) {
    OpenMainWindow();
    const std::wstring volume = folder.MakeFile(L"Том.RAW", 512);
    const std::wstring other = folder.MakeFile(L"other.txt", 512);
    const std::wstring names = volume + L'\0' + other + L'\0' + L'\0';
    const HGLOBAL memory =
        GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, sizeof(DROPFILES) + names.size() * sizeof(wchar_t));
    auto* const drop = static_cast<DROPFILES*>(GlobalLock(memory));
    drop->pFiles = sizeof(DROPFILES);
    drop->fWide = TRUE;
    memcpy(drop + 1, names.data(), names.size() * sizeof(wchar_t));
    GlobalUnlock(memory);
    SendMessageW(window->hwnd, WM_DROPFILES, reinterpret_cast<WPARAM>(memory), 0);
    ASSERT_EQ(CountRows(), 1);
    EXPECT_EQ(Cell(0, 0), volume);
    EXPECT_EQ(Cell(0, 2), L"None") << "there is no key file";
}

TEST_F(MainWindowTest, SurvivesLongNamesAndMissingFiles) {
    OpenMainWindow();
    const std::wstring start = L"C:\\Missing\\";
    VolumeRecord record{};
    CopyText(record.Path, start + std::wstring(259 - start.size(), L'n'));
    CopyText(record.KeyPath, start + std::wstring(259 - start.size(), L'k'));
    channel.SendQueryVolume(record);
    ASSERT_EQ(CountRows(), 1);
    EXPECT_EQ(Cell(0, 0), std::wstring(record.Path));
    EXPECT_EQ(Cell(0, 1), L"0 Bytes");
    Select(0);
    Command(IDM_PROPERTIES, {InDialog([&] {
                EXPECT_EQ(FieldTextOf(IDC_VOLUME), std::wstring(record.Path));
                Press(IDCANCEL);
            })});
    MessageBoxWatcher boxes(IDOK);
    Command(IDM_DELETE);
    const std::vector<SeenBox> seen = boxes.Take();
    ASSERT_EQ(seen.size(), 1U);
    EXPECT_NE(seen[0].text.find(std::wstring(record.Path)), std::wstring::npos);
    EXPECT_EQ(CountRows(), 0);
}

} // namespace
} // namespace quilla
