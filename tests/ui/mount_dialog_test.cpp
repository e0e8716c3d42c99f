// The Mount and Properties dialogs on real volumes: locks, passwords, and what reaches list and key file.

#include "tests/ui/ui_fixture.h"
#include "volume/volume_files.h"

namespace quilla {
namespace {

using namespace test;

class MountDialogTest : public UiTest {
  protected:
    MountDialogTest() {
        OpenMainWindow();
        AddVolume(L"a");
        AddVolume(L"plain", CipherId::None);
        Select(kEnciphered);
    }

    /// The time-out that the key file of the enciphered volume holds, in minutes.
    std::uint64_t StoredMinutes() const {
        VolumeRecord record = RecordOf(kEnciphered);
        EXPECT_TRUE(ReadKeyFileSummary(record));
        return record.Timeout / kTimeoutUnitsPerMinute;
    }

    static void ExpectFixedFieldsLocked() {
        EXPECT_TRUE(IsReadOnly(IDC_VOLUME));
        EXPECT_TRUE(IsReadOnly(IDC_SIZE_VALUE));
        EXPECT_FALSE(IsEnabled(IDC_SIZE_SPIN));
        SendMessageW(Control(IDC_SIZE_VALUE), WM_KEYDOWN, VK_UP, 1);
        EXPECT_EQ(FieldTextOf(IDC_SIZE_VALUE), L"64") << "its arrow keys count, too";
        for (const int id : {IDC_CIPHER, IDC_SIZE_UNIT}) {
            const HWND list = GetDlgItem(OpenDialog(), id);
            const int chosen = Chosen(id);
            const std::wstring shown = TextOf(list);
            Choose(id, (chosen + 1) % 3);
            EXPECT_EQ(Chosen(id), chosen);
            EXPECT_EQ(TextOf(list), shown) << "the list has to snap back";
        }
    }

    static constexpr int kEnciphered = 0;
    static constexpr int kPlain = 1;
};

TEST_F(MountDialogTest, OpensReadyForThePassword) {
    Command(IDM_MOUNT, {InDialog([&] {
                EXPECT_EQ(TextOf(OpenDialog()), L"Mount");
                EXPECT_EQ(GetFocus(), GetDlgItem(OpenDialog(), IDC_PASSWORD));
                ExpectFixedFieldsLocked();
                EXPECT_FALSE(IsReadOnly(IDC_KEY) || IsReadOnly(IDC_TIMEOUT));
                Press(IDCANCEL);
            })});
    EXPECT_FALSE(RecordOf(kEnciphered).IsMounted());
}

TEST_F(MountDialogTest, StaysOpenAfterAWrongPassword) {
    MessageBoxWatcher boxes;
    HWND dialog = nullptr;
    Command(IDM_MOUNT, {InDialog([&] {
                dialog = OpenDialog();
                Type(IDC_PASSWORD, L"Secret");
                Type(IDC_TIMEOUT, L"7");
                Press(IDOK);
                EXPECT_EQ(OpenDialog(), dialog);
                EXPECT_EQ(FieldTextOf(IDC_PASSWORD), L"Secret");
                EXPECT_FALSE(RecordOf(kEnciphered).IsMounted());
                Type(IDC_PASSWORD, L"secret");
                Press(IDOK);
            })});
    const std::vector<SeenBox> seen = boxes.Take();
    ASSERT_EQ(seen.size(), 1U);
    EXPECT_EQ(seen[0].caption, L"Quilla Tarn Error");
    EXPECT_EQ(seen[0].text, L"Incorrect password");
    EXPECT_TRUE(seen[0].errorIcon);
    EXPECT_EQ(seen[0].owner, dialog);

    const VolumeRecord& record = RecordOf(kEnciphered);
    EXPECT_TRUE(record.IsMounted());
    EXPECT_EQ(record.Key, decltype(record.Key){});
    EXPECT_EQ(record.Timeout, 7 * kTimeoutUnitsPerMinute);
    EXPECT_EQ(StoredMinutes(), 7U);
}

TEST_F(MountDialogTest, NeedsNoPasswordWithoutACipher) {
    Select(kPlain);
    Command(IDM_MOUNT, {InDialog([&] {
                EXPECT_NE(GetFocus(), GetDlgItem(OpenDialog(), IDC_PASSWORD));
                EXPECT_FALSE(IsEnabled(IDC_PASSWORD));
                Press(IDOK);
            })});
    EXPECT_TRUE(RecordOf(kPlain).IsMounted());
}

TEST_F(MountDialogTest, TakesTheKeyFileFromAnotherPlace) {
    const std::wstring moved = folder.File(L"elsewhere.key");
    ASSERT_TRUE(MoveFileW(RecordOf(kEnciphered).KeyPath, moved.c_str()));
    MessageBoxWatcher boxes;
    Command(IDM_MOUNT, {InDialog([&] {
                Type(IDC_PASSWORD, L"secret");
                Press(IDOK);
                Type(IDC_KEY, moved);
                Press(IDOK);
            })});
    const std::vector<SeenBox> seen = boxes.Take();
    ASSERT_EQ(seen.size(), 2U);
    EXPECT_TRUE(seen[0].text.starts_with(L"Cannot open file " + folder.File(L"a.key")));
    EXPECT_EQ(seen[1].text, L"Incorrect password");
    EXPECT_TRUE(RecordOf(kEnciphered).IsMounted());
    EXPECT_EQ(Cell(kEnciphered, 3), moved);
}

TEST_F(MountDialogTest, AVolumeMountedBehindTheDialogStaysMounted) {
    Select(kPlain);
    std::uint32_t device = 0;
    Command(IDM_MOUNT, {InDialog([&] {
                VolumeRecord request = RecordOf(kPlain);
                channel.SendMountVolume(request);
                device = request.DeviceHandle;
                Press(IDOK);
            })});
    EXPECT_NE(device, 0U);
    EXPECT_EQ(RecordOf(kPlain).DeviceHandle, device);
}

TEST_F(MountDialogTest, PropertiesReachListAndKeyFile) {
    for (const bool isMounted : {false, true}) {
        const std::uint64_t minutes = isMounted ? 0 : 45;
        if (isMounted)
            MountRow(kEnciphered);
        Command(IDM_PROPERTIES, {InDialog([&] {
                    EXPECT_EQ(TextOf(OpenDialog()), L"Properties");
                    ExpectFixedFieldsLocked();
                    EXPECT_TRUE(IsReadOnly(IDC_PASSWORD));
                    EXPECT_EQ(IsReadOnly(IDC_KEY), isMounted);
                    Type(IDC_TIMEOUT, std::to_wstring(minutes));
                    Press(IDOK);
                })});
        EXPECT_EQ(RecordOf(kEnciphered).IsMounted(), isMounted);
        EXPECT_EQ(RecordOf(kEnciphered).Timeout, minutes * kTimeoutUnitsPerMinute);
        EXPECT_EQ(StoredMinutes(), minutes);
    }
}

TEST_F(MountDialogTest, AVolumeDismountedBehindPropertiesStaysDismounted) {
    MountRow(kEnciphered);
    ASSERT_TRUE(RecordOf(kEnciphered).IsMounted());
    Command(IDM_PROPERTIES, {InDialog([&] {
                VolumeRecord request = RecordOf(kEnciphered);
                channel.SendDismountVolume(request);
                Press(IDOK);
            })});
    EXPECT_FALSE(RecordOf(kEnciphered).IsMounted());
}

} // namespace
} // namespace quilla
