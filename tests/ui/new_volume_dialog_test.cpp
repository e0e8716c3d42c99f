// The New dialog: what it starts with, how names are completed, and the files that OK leaves behind.

#include "tests/ui/ui_fixture.h"
#include "ui/new_volume_dialog.h"

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
                  EXPECT_EQ(FieldTextOf(IDC_VOLUME), L"");
                  EXPECT_EQ(FieldTextOf(IDC_SIZE_VALUE), L"1");
                  EXPECT_EQ(Chosen(IDC_SIZE_UNIT), 1);
                  EXPECT_EQ(Chosen(IDC_CIPHER), 2);
                  EXPECT_EQ(FieldTextOf(IDC_KEY), L"");
                  EXPECT_EQ(FieldTextOf(IDC_PASSWORD), L"");
                  EXPECT_EQ(FieldTextOf(IDC_TIMEOUT), L"30");
                  EXPECT_TRUE(IsEnabled(IDC_PASSWORD) && IsEnabled(IDC_KEY));
                  for (const int id : {IDC_VOLUME, IDC_KEY, IDC_PASSWORD})
                      EXPECT_EQ(SendMessageW(Control(id), EM_GETLIMITTEXT, 0, 0), 259);
                  EXPECT_EQ(GetParent(GetFocus()), GetDlgItem(OpenDialog(), IDC_VOLUME));
                  Press(IDCANCEL);
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
        MoveFocusTo(IDC_SIZE_VALUE);
        EXPECT_EQ(FieldTextOf(IDC_VOLUME), L"\\vol1.raw");
        EXPECT_EQ(FieldTextOf(IDC_KEY), L"\\vol1.key");

        MoveFocusTo(IDC_KEY);
        Type(IDC_KEY, L"C:\\Keys\\mine");
        MoveFocusTo(IDC_VOLUME); // not edited again: leaving it changes nothing
        EXPECT_EQ(FieldTextOf(IDC_KEY), L"C:\\Keys\\mine.key");
        MoveFocusTo(IDC_SIZE_VALUE);
        EXPECT_EQ(FieldTextOf(IDC_KEY), L"C:\\Keys\\mine.key");

        MoveFocusTo(IDC_VOLUME);
        Type(IDC_VOLUME, L"\\Data\\v.x");
        MoveFocusTo(IDC_PASSWORD);
        EXPECT_EQ(FieldTextOf(IDC_VOLUME), L"\\Data\\v.x");
        EXPECT_EQ(FieldTextOf(IDC_KEY), L"\\Data\\v.key");
        Press(IDCANCEL);
    })});
}

TEST_F(NewVolumeDialogTest, CreatesBothFiles) {
    const std::wstring name = folder.File(L"Дневник");
    EXPECT_EQ(Run({InDialog([&] {
                       Type(IDC_VOLUME, name);
                       MoveFocusTo(IDC_SIZE_VALUE);
                       Type(IDC_SIZE_VALUE, L"96");
                       Choose(IDC_SIZE_UNIT, 0);
                       Choose(IDC_CIPHER, 1);
                       Type(IDC_PASSWORD, L"geheim");
                       Type(IDC_TIMEOUT, L"0");
                   }),
                   InDialog([] { Press(IDOK); })}),
              IDOK);
    EXPECT_EQ(std::wstring(record.Path), name + L".raw");
    EXPECT_EQ(std::wstring(record.KeyPath), name + L".key");
    EXPECT_EQ(record.Size, 96U * 1024);
    EXPECT_EQ(record.Cipher, CipherId::Twofish);
    EXPECT_EQ(record.Timeout, 0U);
    EXPECT_EQ(SizeOfFile(name + L".raw"), 96U * 1024);
    EXPECT_EQ(SizeOfFile(name + L".key"), 760U);
}

TEST_F(NewVolumeDialogTest, ShowsTwoThousandMegabytesAsGigabytesLater) {
    const std::wstring name = folder.File(L"big");
    Run({InDialog([&] {
             Type(IDC_VOLUME, name);
             MoveFocusTo(IDC_SIZE_VALUE);
             Type(IDC_SIZE_VALUE, L"2048");
             Choose(IDC_CIPHER, 0);
         }),
         InDialog([] {
             EXPECT_FALSE(IsEnabled(IDC_PASSWORD) || IsEnabled(IDC_KEY)) << "no cipher, no key";
             EXPECT_FALSE(IsEnabled(IDC_PASSWORD_LABEL) || IsEnabled(IDC_KEY_LABEL));
             Press(IDOK);
         })});
    EXPECT_EQ(record.Size, std::uint64_t{2} << 30);
    EXPECT_EQ(record.KeyPath[0], 0) << "the key field is not used without a cipher";
    EXPECT_EQ(SizeOfFile(name + L".raw"), std::uint64_t{2} << 30);
    EXPECT_FALSE(FileExists(name + L".key"));
}

TEST_F(NewVolumeDialogTest, TakesTheLongestNames) {
    const std::wstring start = folder.File(L"");
    const std::wstring name = start + std::wstring(259 - start.size() - 4, L'n') + L".raw";
    Run({InDialog([&] {
        Type(IDC_VOLUME, name + L"more");
        MoveFocusTo(IDC_SIZE_VALUE);
        EXPECT_EQ(FieldTextOf(IDC_VOLUME), name);
        EXPECT_EQ(FieldTextOf(IDC_KEY), name.substr(0, 256) + L"key");
        Type(IDC_PASSWORD, std::wstring(300, L'p'));
        EXPECT_EQ(FieldTextOf(IDC_PASSWORD).size(), 259U);
        Press(IDOK);
    })});
    EXPECT_EQ(std::wstring(record.Path), name);
    EXPECT_EQ(record.Size, kDefaultVolumeSize);
}

TEST_F(NewVolumeDialogTest, NeverOverwritesAnExistingKeyFile) {
    const std::wstring path = folder.MakeFile(L"there.key", 5);
    MessageBoxWatcher boxes;
    EXPECT_EQ(Run({InDialog([&] {
                  Type(IDC_VOLUME, folder.File(L"there"));
                  MoveFocusTo(IDC_SIZE_VALUE);
                  Press(IDOK);
              })}),
              IDOK);
    const std::vector<SeenBox> seen = boxes.Take();
    ASSERT_EQ(seen.size(), 1U);
    EXPECT_TRUE(seen[0].text.starts_with(L"Cannot create file " + path));
    EXPECT_EQ(SizeOfFile(path), 5U);
}

TEST_F(NewVolumeDialogTest, EndsByKeys) {
    ShowWindow(window->hwnd, SW_SHOW);
    EXPECT_EQ(Run({InDialog([] { PressKey(VK_ESCAPE); })}), IDCANCEL);
    EXPECT_EQ(Run({InDialog([this] { Type(IDC_VOLUME, folder.File(L"typed")); }),
                   InDialog([] { PressKey(VK_RETURN); })}),
              IDOK);
    EXPECT_EQ(std::wstring(record.Path), folder.File(L"typed.raw")) << "completed without leaving the field";
}

} // namespace
} // namespace quilla
