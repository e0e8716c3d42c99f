// The New dialog: what it starts with, how names are completed, and what OK leaves behind.

#include "tests/ui/ui_fixture.h"

#include <filesystem>

namespace quilla {
namespace {

using namespace test;

class NewVolumeDialogTest : public UiTest {
  protected:
    NewVolumeDialogTest() { OpenMainWindow(); }
};

TEST_F(NewVolumeDialogTest, StartsWithTheDefaults) {
    Command(IDM_NEW, {InDialog([&] {
                EXPECT_EQ(FieldTextOf(IDC_VOLUME) + FieldTextOf(IDC_KEY) + FieldTextOf(IDC_PASSWORD), L"");
                Type(IDC_VOLUME, folder.File(L"n"));
                Press(IDOK);
            })});
    CloseMainWindow();
    OpenMainWindow();
    ASSERT_EQ(CountRows(), 1) << "the list has been saved";
    EXPECT_EQ(Cell(0, 0), folder.File(L"n.raw"));
    EXPECT_EQ(Cell(0, 1), L"1 MB");
    EXPECT_EQ(Cell(0, 2), L"CAST - 128");
    EXPECT_EQ(Cell(0, 3), folder.File(L"n.key"));
    EXPECT_EQ(RecordOf(0).Timeout, kDefaultTimeout);
}

TEST_F(NewVolumeDialogTest, CompletesNamesWhenTheFocusLeaves) {
    Command(IDM_NEW, {InDialog([&] {
                Type(IDC_VOLUME, L"vol1");
                MoveFocusTo(IDC_KEY);
                EXPECT_EQ(FieldTextOf(IDC_VOLUME), L"\\vol1.raw");
                EXPECT_EQ(FieldTextOf(IDC_KEY), L"\\vol1.key");

                Type(IDC_KEY, L"C:\\Keys\\mine");
                MoveFocusTo(IDC_VOLUME);
                MoveFocusTo(
                    IDC_SIZE_VALUE); // the volume has not been edited again: leaving it changes nothing
                EXPECT_EQ(FieldTextOf(IDC_KEY), L"C:\\Keys\\mine.key");
                SendMessageW(window->hwnd, WM_CLOSE, 0, 0);
                Press(IDCANCEL);
            })});
    ASSERT_NE(window->hwnd, nullptr) << "closing waits for an open dialog";
    EXPECT_EQ(CountRows(), 0);
}

TEST_F(NewVolumeDialogTest, CreatesNoKeyFileWithoutACipher) {
    const std::wstring name = folder.File(L"big");
    const auto chooseNone = [&] {
        Type(IDC_VOLUME, name);
        MoveFocusTo(IDC_SIZE_VALUE);
        Type(IDC_SIZE_VALUE, L"2048");
        Type(IDC_TIMEOUT, L"40000");
        SendMessageW(Control(IDC_CIPHER), WM_KEYDOWN, VK_HOME, 1);
    };
    Command(IDM_NEW, {InDialog(chooseNone), InDialog([] {
                          for (const int id : {IDC_PASSWORD, IDC_PASSWORD_LABEL, IDC_KEY, IDC_KEY_LABEL})
                              EXPECT_FALSE(IsWindowEnabled(Control(id))) << id;
                          Press(IDOK);
                      })});
    const VolumeRecord& record = RecordOf(0);
    EXPECT_EQ(record.Size, std::uint64_t{2} << 30);
    EXPECT_EQ(std::filesystem::file_size(record.Path), record.Size);
    EXPECT_EQ(record.Timeout, 32767 * kTimeoutUnitsPerMinute) << "the most that fits, not the number before";
    EXPECT_EQ(record.KeyPath[0], 0) << "the key field is not used";
    EXPECT_EQ(GetFileAttributesW((name + L".key").c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST_F(NewVolumeDialogTest, TakesTheLongestNames) {
    const std::wstring start = folder.File(L"");
    const std::wstring name = start + std::wstring(259 - start.size() - 4, L'n') + L".raw";
    Command(IDM_NEW, {InDialog([&] {
                Type(IDC_VOLUME, name + L"more");
                MoveFocusTo(IDC_PASSWORD);
                EXPECT_EQ(FieldTextOf(IDC_KEY), name.substr(0, 256) + L"key");
                Type(IDC_PASSWORD, std::wstring(300, L'p'));
                EXPECT_EQ(FieldTextOf(IDC_PASSWORD).size(), 259U);
                Press(IDOK);
            })});
    EXPECT_EQ(Cell(0, 0), name);
}

/// By key the name is completed without leaving the field; a failed creation ends the dialog all the same.
TEST_F(NewVolumeDialogTest, EnterNeverOverwritesAnExistingKeyFile) {
    const std::wstring path = folder.MakeFile(L"there.key", 5);
    MessageBoxWatcher boxes;
    Command(IDM_NEW, {InDialog([&] {
                Type(IDC_VOLUME, folder.File(L"there"));
                PostMessageW(GetFocus(), WM_KEYDOWN, VK_RETURN, 1);
            })});
    const std::vector<SeenBox> seen = boxes.Take();
    ASSERT_EQ(seen.size(), 1U);
    EXPECT_TRUE(seen[0].text.starts_with(L"Cannot create file " + path));
    EXPECT_EQ(std::filesystem::file_size(path), 5U);
    EXPECT_EQ(Cell(0, 0), folder.File(L"there.raw"));
}

} // namespace
} // namespace quilla
