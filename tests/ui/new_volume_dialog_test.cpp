// The New dialog: what it starts with, how names are completed, and the files that OK leaves behind.

#include "ui/new_volume_dialog.h"

#include "tests/ui/ui_fixture.h"

namespace quilla {
namespace {

using namespace test;

class NewVolumeDialogTest : public UiTest {
  protected:
    NewVolumeDialogTest() { OpenMainWindow(); }

    int Run(std::vector<Step> steps) {
        application.Play(std::move(steps));
        NewVolumeDialog dialog(record, services);
        const int result = dialog.DoModal(window->hwnd, MAKEINTRESOURCEW(IDD_VOLUME));
        EXPECT_TRUE(application.PlayedToTheEnd());
        return result;
    }

    static std::uint64_t SizeOfFile(const std::wstring& path) {
        WIN32_FILE_ATTRIBUTE_DATA data{};
        EXPECT_TRUE(GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data));
        return (std::uint64_t{data.nFileSizeHigh} << 32) | data.nFileSizeLow;
    }

    VolumeRecord record{};
};

TEST_F(NewVolumeDialogTest, StartsWithTheDefaults) {
    record.Size = 77;
    record.DeviceHandle = 5;
    EXPECT_EQ(Run({InDialog([] {
                  EXPECT_EQ(TextOf(OpenDialog()), L"New");
                  EXPECT_EQ(FieldTextOf(IDC_VOLUME) + FieldTextOf(IDC_KEY) + FieldTextOf(IDC_PASSWORD), L"");
                  EXPECT_EQ(FieldTextOf(IDC_SIZE_VALUE), L"1");
                  EXPECT_EQ(Chosen(IDC_SIZE_UNIT), 1);
                  EXPECT_EQ(Chosen(IDC_CIPHER), 2);
                  EXPECT_EQ(FieldTextOf(IDC_TIMEOUT), L"30");
                  EXPECT_TRUE(IsEnabled(IDC_PASSWORD) && IsEnabled(IDC_KEY));
                  EXPECT_EQ(GetParent(GetFocus()), GetDlgItem(OpenDialog(), IDC_VOLUME));
                  PressKey(VK_ESCAPE);
              })}),
              IDCANCEL);
    EXPECT_EQ(record.Size, kDefaultVolumeSize);
    EXPECT_EQ(record.Cipher, CipherId::Cast128);
    EXPECT_EQ(record.Timeout, kDefaultTimeout);
    EXPECT_EQ(record.DeviceHandle, 0U);
}

TEST_F(NewVolumeDialogTest, CompletesNamesWhenTheFocusLeaves) {
    Run({InDialog([] {
        Type(IDC_VOLUME, L"vol1");
        MoveFocusTo(IDC_KEY);
        EXPECT_EQ(FieldTextOf(IDC_VOLUME), L"\\vol1.raw");
        EXPECT_EQ(FieldTextOf(IDC_KEY), L"\\vol1.key");

        Type(IDC_KEY, L"C:\\Keys\\mine");
        MoveFocusTo(IDC_VOLUME);
        MoveFocusTo(IDC_SIZE_VALUE); // the volume has not been edited again: leaving it changes nothing
        EXPECT_EQ(FieldTextOf(IDC_KEY), L"C:\\Keys\\mine.key");
        Press(IDCANCEL);
    })});
}

TEST_F(NewVolumeDialogTest, CreatesNoKeyFileWithoutACipher) {
    const std::wstring name = folder.File(L"big");
    Run({InDialog([&] {
             Type(IDC_VOLUME, name);
             MoveFocusTo(IDC_SIZE_VALUE);
             Type(IDC_SIZE_VALUE, L"2048");
             Type(IDC_TIMEOUT, L"40000");
             Choose(IDC_CIPHER, 0);
         }),
         InDialog([] {
             for (const int id : {IDC_PASSWORD, IDC_PASSWORD_LABEL, IDC_KEY, IDC_KEY_LABEL})
                 EXPECT_FALSE(IsEnabled(id)) << id;
             Press(IDOK);
         })});
    EXPECT_EQ(record.Size, std::uint64_t{2} << 30);
    EXPECT_EQ(SizeOfFile(record.Path), record.Size);
    EXPECT_EQ(record.Timeout, 32767 * kTimeoutUnitsPerMinute) << "the most that fits, not the number before";
    EXPECT_EQ(record.KeyPath[0], 0) << "the key field is not used";
    EXPECT_FALSE(FileExists(name + L".key"));
}

TEST_F(NewVolumeDialogTest, TakesTheLongestNames) {
    const std::wstring start = folder.File(L"");
    const std::wstring name = start + std::wstring(259 - start.size() - 4, L'n') + L".raw";
    Run({InDialog([&] {
        Type(IDC_VOLUME, name + L"more");
        MoveFocusTo(IDC_PASSWORD);
        EXPECT_EQ(FieldTextOf(IDC_KEY), name.substr(0, 256) + L"key");
        Type(IDC_PASSWORD, std::wstring(300, L'p'));
        EXPECT_EQ(FieldTextOf(IDC_PASSWORD).size(), 259U);
        Press(IDOK);
    })});
    EXPECT_EQ(std::wstring(record.Path), name);
}

/// By key the name is completed without leaving the field; a failed creation ends the dialog all the same.
TEST_F(NewVolumeDialogTest, EnterNeverOverwritesAnExistingKeyFile) {
    const std::wstring path = folder.MakeFile(L"there.key", 5);
    MessageBoxWatcher boxes;
    EXPECT_EQ(Run({InDialog([&] {
                  Type(IDC_VOLUME, folder.File(L"there"));
                  PressKey(VK_RETURN);
              })}),
              IDOK);
    const std::vector<SeenBox> seen = boxes.Take();
    ASSERT_EQ(seen.size(), 1U);
    EXPECT_TRUE(seen[0].text.starts_with(L"Cannot create file " + path));
    EXPECT_EQ(SizeOfFile(path), 5U);
    EXPECT_EQ(std::wstring(record.Path), folder.File(L"there.raw"));
}

} // namespace
} // namespace quilla
