// The Mount and Properties dialogs on real volumes: locks, passwords, and what reaches driver and key file.

#include "platform/desktop/device_manager.h"
#include "tests/ui/ui_fixture.h"
#include "ui/mount_dialog.h"
#include "ui/properties_dialog.h"
#include "volume/volume_files.h"

#include <algorithm>

namespace quilla {
namespace {

using namespace test;

class MountDialogTest : public UiTest {
  protected:
    MountDialogTest() { OpenMainWindow(); }

    /// The time-out that the key file of a row's volume holds.
    std::uint64_t StoredTimeout(int row) const {
        VolumeRecord record = RecordOf(row);
        EXPECT_TRUE(ReadKeyFileSummary(record));
        return record.Timeout;
    }

    static void ExpectFixedFieldsLocked() {
        EXPECT_TRUE(IsReadOnly(IDC_VOLUME));
        EXPECT_TRUE(IsReadOnly(IDC_SIZE_VALUE));
        EXPECT_FALSE(IsEnabled(IDC_SIZE_SPIN));
        const int cipher = Chosen(IDC_CIPHER);
        const int unit = Chosen(IDC_SIZE_UNIT);
        Choose(IDC_CIPHER, (cipher + 1) % 3);
        Choose(IDC_SIZE_UNIT, (unit + 1) % 3);
        EXPECT_EQ(Chosen(IDC_CIPHER), cipher);
        EXPECT_EQ(Chosen(IDC_SIZE_UNIT), unit);
        const HWND list = GetDlgItem(OpenDialog(), IDC_CIPHER);
        wchar_t shown[64] = {};
        GetWindowTextW(list, shown, 64);
        wchar_t kept[64] = {};
        SendMessageW(list, CB_GETLBTEXT, static_cast<WPARAM>(cipher), reinterpret_cast<LPARAM>(kept));
        EXPECT_STREQ(shown, kept) << "the list has to snap back";
    }
};

TEST_F(MountDialogTest, OpensReadyForThePassword) {
    AddVolume(L"a");
    Select(0);
    Command(IDM_MOUNT, {InDialog([&] {
                EXPECT_EQ(TextOf(OpenDialog()), L"Mount");
                EXPECT_EQ(GetFocus(), GetDlgItem(OpenDialog(), IDC_PASSWORD));
                ExpectFixedFieldsLocked();
                EXPECT_FALSE(IsReadOnly(IDC_KEY));
                EXPECT_FALSE(IsReadOnly(IDC_TIMEOUT));
                Press(IDCANCEL);
            })});
    EXPECT_FALSE(RecordOf(0).IsMounted());
}

TEST_F(MountDialogTest, StaysOpenAfterAWrongPassword) {
    for (const CipherId cipher : {CipherId::Twofish, CipherId::Cast128}) {
        const int row = CountRows();
        AddVolume(L"v" + std::to_wstring(row), cipher);
        Select(row);
        MessageBoxWatcher boxes;
        HWND dialog = nullptr;
        Command(IDM_MOUNT, {InDialog([&] {
                                dialog = OpenDialog();
                                Type(IDC_PASSWORD, L"Secret");
                                Type(IDC_TIMEOUT, L"7");
                                Press(IDOK);
                            }),
                            InDialog([&] {
                                EXPECT_EQ(OpenDialog(), dialog);
                                EXPECT_EQ(FieldTextOf(IDC_PASSWORD), L"Secret");
                                EXPECT_FALSE(RecordOf(row).IsMounted());
                                Type(IDC_PASSWORD, L"secret");
                                Press(IDOK);
                            })});
        const std::vector<SeenBox> seen = boxes.Take();
        ASSERT_EQ(seen.size(), 1U);
        EXPECT_EQ(seen[0].caption, L"Quilla Tarn Error");
        EXPECT_EQ(seen[0].text, L"Incorrect password");
        EXPECT_TRUE(seen[0].errorIcon);
        EXPECT_EQ(seen[0].owner, dialog);

        const VolumeRecord& record = RecordOf(row);
        EXPECT_TRUE(record.IsMounted());
        EXPECT_TRUE(std::ranges::all_of(record.Key, [](std::byte b) { return b == std::byte{}; }));
        EXPECT_EQ(record.Timeout, 7 * kTimeoutUnitsPerMinute);
        EXPECT_EQ(StoredTimeout(row), 7 * kTimeoutUnitsPerMinute);
    }
}

TEST_F(MountDialogTest, NeedsNoPasswordWithoutACipher) {
    AddVolume(L"plain", CipherId::None);
    Select(0);
    Command(IDM_MOUNT, {InDialog([&] {
                EXPECT_NE(GetFocus(), GetDlgItem(OpenDialog(), IDC_PASSWORD));
                EXPECT_FALSE(IsEnabled(IDC_PASSWORD));
                Press(IDOK);
            })});
    EXPECT_TRUE(RecordOf(0).IsMounted());
}

TEST_F(MountDialogTest, TakesTheKeyFileFromAnotherPlace) {
    AddVolume(L"a");
    const std::wstring moved = folder.File(L"elsewhere.key");
    ASSERT_TRUE(MoveFileW(RecordOf(0).KeyPath, moved.c_str()));
    Select(0);
    MessageBoxWatcher boxes;
    Command(IDM_MOUNT, {InDialog([&] {
                            Type(IDC_PASSWORD, L"secret");
                            Press(IDOK);
                        }),
                        InDialog([&] {
                            Type(IDC_KEY, moved);
                            Press(IDOK);
                        })});
    const std::vector<SeenBox> seen = boxes.Take();
    ASSERT_EQ(seen.size(), 2U);
    EXPECT_TRUE(seen[0].text.starts_with(L"Cannot open file " + folder.File(L"a.key")));
    EXPECT_EQ(seen[1].text, L"Incorrect password");
    EXPECT_TRUE(RecordOf(0).IsMounted());
    EXPECT_EQ(Cell(0, 3), moved);
}

TEST_F(MountDialogTest, AMissingVolumeFileIsReportedAndStaysUnmounted) {
    DeleteFileW(AddVolume(L"gone").c_str());
    MessageBoxWatcher boxes;
    MountRow(0);
    const std::vector<SeenBox> seen = boxes.Take();
    ASSERT_EQ(seen.size(), 1U);
    EXPECT_EQ(seen[0].text, L"RegisterDevice() failed");
    EXPECT_FALSE(RecordOf(0).IsMounted());
    EXPECT_EQ(Cell(0, 1), L"0 Bytes");
}

TEST_F(MountDialogTest, AVolumeMountedBehindTheDialogStaysMounted) {
    AddVolume(L"plain", CipherId::None);
    Select(0);
    std::uint32_t device = 0;
    Command(IDM_MOUNT, {InDialog([&] {
                VolumeRecord request = RecordOf(0);
                channel.SendMountVolume(request);
                device = request.DeviceHandle;
                Press(IDOK);
            })});
    EXPECT_NE(device, 0U);
    EXPECT_EQ(RecordOf(0).DeviceHandle, device);
}

TEST_F(MountDialogTest, PropertiesChangeKeyPathAndTimeout) {
    AddVolume(L"a");
    Select(0);
    Command(IDM_PROPERTIES, {InDialog([&] {
                EXPECT_EQ(TextOf(OpenDialog()), L"Properties");
                ExpectFixedFieldsLocked();
                EXPECT_TRUE(IsReadOnly(IDC_PASSWORD));
                EXPECT_FALSE(IsReadOnly(IDC_KEY));
                Type(IDC_TIMEOUT, L"45");
                Press(IDOK);
            })});
    EXPECT_EQ(RecordOf(0).Timeout, 45 * kTimeoutUnitsPerMinute);
    EXPECT_EQ(StoredTimeout(0), 45 * kTimeoutUnitsPerMinute);
}

TEST_F(MountDialogTest, PropertiesOfAMountedVolumeReachTheDriver) {
    AddVolume(L"a");
    MountRow(0);
    ASSERT_TRUE(RecordOf(0).IsMounted());
    Command(IDM_PROPERTIES, {InDialog([&] {
                EXPECT_TRUE(IsReadOnly(IDC_KEY));
                Type(IDC_TIMEOUT, L"0");
                Press(IDOK);
            })});
    EXPECT_TRUE(RecordOf(0).IsMounted());
    EXPECT_EQ(StoredTimeout(0), 0U);
    EXPECT_TRUE(IsCommandEnabled(IDM_DISMOUNT));
}

TEST_F(MountDialogTest, AVolumeDismountedBehindPropertiesStaysDismounted) {
    AddVolume(L"a");
    MountRow(0);
    ASSERT_TRUE(RecordOf(0).IsMounted());
    Command(IDM_PROPERTIES, {InDialog([&] {
                VolumeRecord request = RecordOf(0);
                channel.SendDismountVolume(request);
                Press(IDOK);
            })});
    EXPECT_FALSE(RecordOf(0).IsMounted());
    EXPECT_TRUE(IsCommandEnabled(IDM_MOUNT));
}

TEST_F(MountDialogTest, ADialogWithoutAMainWindowHasItsFileFields) {
    AddVolume(L"a");
    VolumeRecord record = RecordOf(0);
    CloseMainWindow();
    UnregisterClassW(L"BWindow", GetModuleHandleW(nullptr));
    application.Play({InDialog([&] {
        EXPECT_EQ(FieldTextOf(IDC_VOLUME), std::wstring(record.Path));
        Press(IDCANCEL);
    })});
    MountDialog dialog(record, services);
    EXPECT_EQ(dialog.DoModal(nullptr, MAKEINTRESOURCEW(IDD_VOLUME)), IDCANCEL);
    EXPECT_TRUE(application.PlayedToTheEnd());
}

} // namespace
} // namespace quilla
