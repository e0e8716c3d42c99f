// The main window as a window: its life, and what it keeps for the next start.

#include "tests/support/message_window.h"
#include "tests/support/program.h"
#include "tests/ui/ui_fixture.h"
#include "ui/window_settings.h"

#include <algorithm>
#include <atomic>
#include <shlobj.h>
#include <thread>

namespace quilla {
namespace {

using namespace test;

class MainWindowTest : public UiTest {
  protected:
    [[nodiscard]] int ImageOf(int row) const {
        LVITEMW item{};
        item.mask = LVIF_IMAGE;
        item.iItem = row;
        ListView_GetItem(List(), &item);
        return item.iImage;
    }

    void ClickColumn(int column) const {
        NMLISTVIEW click{};
        click.iItem = -1;
        click.iSubItem = column;
        Notify(click, static_cast<UINT>(LVN_COLUMNCLICK));
    }
};

TEST_F(MainWindowTest, HidesWhileAVolumeIsMountedAndClosesAfterwards) {
    OpenMainWindow();
    AddVolume(L"a", CipherId::None);
    ShowWindow(window->hwnd, SW_SHOW);
    EXPECT_EQ(ImageOf(0), 1) << "none";
    MountRow(0);
    EXPECT_EQ(ImageOf(0), 0);
    EXPECT_EQ(ImageList_GetImageCount(ListView_GetImageList(List(), LVSIL_SMALL)), 3);
    Command(IDM_ABOUT, {InDialog([&] {
                SendMessageW(window->hwnd, WM_CLOSE, 0, 0);
                EXPECT_TRUE(IsWindowVisible(window->hwnd)) << "under its dialog";
                Press(IDOK);
            })});
    application.PumpPending();
    ASSERT_NE(window->hwnd, nullptr);
    EXPECT_FALSE(IsWindowVisible(window->hwnd)) << "the close was forgotten";
    EXPECT_EQ(WaitForSingleObject(instanceEvent.Get(), 0), WAIT_OBJECT_0);

    SendMessageW(window->hwnd, WM_TRAYICON, 101, WM_LBUTTONDBLCLK);
    EXPECT_TRUE(IsWindowVisible(window->hwnd));

    Command(IDM_DISMOUNT_ALL);
    EXPECT_FALSE(RecordOf(0).IsMounted());
    SendMessageW(window->hwnd, WM_CLOSE, 0, 0);
    EXPECT_EQ(window->hwnd, nullptr);
    EXPECT_EQ(WaitForSingleObject(instanceEvent.Get(), 0), DWORD{WAIT_TIMEOUT}) << "no longer serving";
    EXPECT_EQ(application.Run(), 0) << "the end of the window is the end of the loop";
}

/// Other processes are served while the end of a device is announced: as late as any row is looked at, it has
/// its key file back.
TEST_F(MainWindowTest, AVolumeKeepsItsKeyFileThroughARequestInTheMiddleOfADismount) {
    OpenMainWindow();
    AddVolume(L"a");
    VolumeRecord other{};
    CopyText(other.Path, AddVolume(L"b"));
    MountRow(0);
    MountRow(1);
    const MessageWindow listener([&](UINT message, WPARAM, LPARAM) {
        if (message == WM_DEVICECHANGE && RecordOf(1).IsMounted())
            channel.SendDismountVolume(other);
        return std::nullopt;
    });
    Select(0);
    Command(IDM_DISMOUNT);
    EXPECT_FALSE(RecordOf(0).IsMounted() || RecordOf(1).IsMounted());
    Select(1);
    Command(IDM_MOUNT, {InDialog([&] {
                EXPECT_EQ(FieldTextOf(IDC_KEY), folder.File(L"b.key"));
                Press(IDCANCEL);
            })});
}

TEST_F(MainWindowTest, KeepsAVolumeThatIsMountedWhileItsDeletionWaitsForItsTurn) {
    OpenMainWindow();
    RequestBlock block{};
    block.RequestCode = RequestCode::MountVolume;
    CopyText(block.Record.Path, AddVolume(L"a", CipherId::None));
    Select(0);
    MessageBoxWatcher boxes(IDOK);
    std::atomic<bool> isTaken = false;
    std::thread sender([&] { // as another process
        const UniqueMutex mutex(CreateMutexW(nullptr, TRUE, kRequestMutexName));
        isTaken = true;
        EXPECT_TRUE(WaitUntil(RequestChannel::IsSending));
        const UniqueMapping mapping(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                                       kRequestMappingSize, kRequestMappingName));
        const UniqueView view(MapViewOfFile(mapping.Get(), FILE_MAP_WRITE, 0, 0, 0));
        *static_cast<RequestBlock*>(view.Get()) = block;
        SendMessageW(window->hwnd, WM_REQUEST, 0, 0);
        ReleaseMutex(mutex.Get());
    });
    EXPECT_TRUE(WaitUntil([&] { return isTaken.load(); }));
    Command(IDM_DELETE);
    sender.join();
    const std::vector<SeenBox> seen = boxes.Take();
    ASSERT_EQ(seen.size(), 2U);
    EXPECT_EQ(seen[1].text, L"The volume has been mounted and cannot be deleted");
    ASSERT_EQ(CountRows(), 1);
    EXPECT_TRUE(RecordOf(0).IsMounted());
}

TEST_F(MainWindowTest, ComesBackAsItWasLeft) {
    OpenMainWindow();
    AddVolume(L"b", CipherId::None, L"", 2048);
    AddVolume(L"a", CipherId::None, L"", 1024);
    SetWindowPos(window->hwnd, nullptr, 33, 44, 555, 333, SWP_NOZORDER);
    RECT client;
    GetClientRect(window->hwnd, &client);
    EXPECT_EQ(PlaceOf(List()), (RECT{-1, PlaceOf(Toolbar()).bottom, client.right + 1, client.bottom + 1}));
    ListView_SetColumnWidth(List(), 3, 99);
    ClickColumn(1);
    EXPECT_EQ(Cell(0, 0), folder.File(L"a.raw"));
    ClickColumn(1);
    EXPECT_EQ(Cell(0, 0), folder.File(L"b.raw"));
    ClickColumn(0);
    EXPECT_EQ(Cell(0, 0), folder.File(L"a.raw")) << "another column begins upwards";
    ClickColumn(0);
    AddVolume(L"c", CipherId::None);
    EXPECT_EQ(Cell(0, 0), folder.File(L"c.raw")) << "rows that come take their place in the order";
    CloseMainWindow();

    OpenMainWindow();
    EXPECT_EQ(PlaceOf(window->hwnd), (RECT{33, 44, 33 + 555, 44 + 333}));
    EXPECT_EQ(ListView_GetColumnWidth(List(), 3), 99);
    AddVolume(L"d", CipherId::None);
    AddVolume(L"e", CipherId::None);
    EXPECT_EQ(Cell(0, 0), folder.File(L"e.raw"));
}

TEST_F(MainWindowTest, TakesASavedPlaceUpWhereItCanBeReached) {
    WindowSettings settings;
    settings.hasPlace = true;
    settings.place = {30000, 30000, 30400, 30300};
    SaveWindowSettings(settings);
    OpenMainWindow();
    EXPECT_LT(PlaceOf(window->hwnd).left, GetSystemMetrics(SM_CXSCREEN));
    CloseMainWindow();

    settings.place = {10, 20, 310, 220};
    settings.dpi = 48; // of the screen where it was saved
    SaveWindowSettings(settings);
    OpenMainWindow();
    const RECT place = PlaceOf(window->hwnd);
    const int dpi = static_cast<int>(GetDpiForWindow(window->hwnd));
    EXPECT_EQ(place.right - place.left, MulDiv(300, dpi, 48));
    EXPECT_EQ(place.bottom - place.top, MulDiv(200, dpi, 48));
}

TEST_F(MainWindowTest, SettingsThatMakeNoSenseGiveWayToDefaults) {
    const std::pair<const wchar_t*, DWORD> values[] = {
        {L"Left", 100},       {L"Top", 100},     {L"Right", 100}, {L"Bottom", 300},  {L"VolumeWidth", ~0U},
        {L"SizeWidth", 5000}, {L"KeyWidth", 77}, {L"Dpi", 0},     {L"SortColumn", 5}};
    const auto write = [](const wchar_t* name, DWORD value) {
        RegSetKeyValueW(HKEY_CURRENT_USER, L"Software\\Orvane\\Quilla\\Window", name, REG_DWORD, &value,
                        sizeof(value));
    };
    for (const auto& [name, value] : values)
        write(name, value);
    EXPECT_FALSE(LoadWindowSettings().hasPlace) << "nothing between left and right";
    write(L"Left", 0x80000000);
    const WindowSettings read = LoadWindowSettings();
    EXPECT_FALSE(read.hasPlace || read.isMaximized);
    EXPECT_EQ(read.dpi, 96);
    EXPECT_EQ(read.sortColumn, 0);
    EXPECT_TRUE(std::ranges::equal(read.columnWidths, std::initializer_list<int>{160, 60, 100, 77, 120}));
}

TEST_F(MainWindowTest, TakesDroppedVolumes) {
    OpenMainWindow();
    const std::wstring volume = folder.MakeFile(L"Том.RAW", 512);
    const std::wstring names = volume + L'\0' + folder.MakeFile(L"other.txt", 512) + L'\0' + L'\0';
    const HGLOBAL memory = GlobalAlloc(GHND, sizeof(DROPFILES) + names.size() * sizeof(wchar_t));
    auto* const drop = static_cast<DROPFILES*>(GlobalLock(memory));
    drop->pFiles = sizeof(DROPFILES);
    drop->fWide = TRUE;
    memcpy(drop + 1, names.data(), names.size() * sizeof(wchar_t));
    GlobalUnlock(memory);
    SendMessageW(window->hwnd, WM_DROPFILES, reinterpret_cast<WPARAM>(memory), 0);
    ASSERT_EQ(CountRows(), 1);
    EXPECT_EQ(Cell(0, 0), volume);
    EXPECT_EQ(Cell(0, 2), L"None") << "there is no key file";
    EXPECT_EQ(ImageOf(0), 2) << "a mark at what is missing";
    CloseMainWindow();
    OpenMainWindow();
    ASSERT_EQ(CountRows(), 1) << "the list has been saved";
    EXPECT_EQ(Cell(0, 3), volume.substr(0, volume.size() - 3) + L"key");
    EXPECT_EQ(Cell(0, 4), L"Key file missing");
}

TEST_F(MainWindowTest, DeletesTheLongestNamesAndMissingFiles) {
    OpenMainWindow();
    const std::wstring start = L"C:\\Missing\\";
    VolumeRecord record{};
    CopyText(record.Path, start + std::wstring(259 - start.size(), L'n'));
    CopyText(record.KeyPath, start + std::wstring(259 - start.size(), L'k'));
    const std::wstring keyPath = record.KeyPath;
    channel.SendQueryVolume(record);
    EXPECT_EQ(Cell(0, 0), std::wstring(record.Path));
    EXPECT_STREQ(record.KeyPath, L"") << "a sender learns that there is none";
    EXPECT_EQ(Cell(0, 3), keyPath) << "the user keeps it: its medium may be absent";
    Select(0);
    MessageBoxWatcher boxes(IDOK);
    Command(IDM_DELETE);
    const std::vector<SeenBox> seen = boxes.Take();
    ASSERT_EQ(seen.size(), 1U);
    EXPECT_EQ(seen[0].caption, L"Confirm Delete");
    EXPECT_EQ(seen[0].text, L"Are you sure you want to delete\n\n" + std::wstring(record.Path) + L"\n" +
                                keyPath + L"\n\nand all the data inside?");
    EXPECT_EQ(CountRows(), 0);
}

} // namespace
} // namespace quilla
