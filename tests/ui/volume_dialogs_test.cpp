// Mount, Properties and Change Password on real volumes: locks, passwords, and what reaches list and key
// file.

#include "tests/support/memory_limit.h"
#include "tests/ui/ui_fixture.h"
#include "volume/key_strength.h"

#include <filesystem>
#include <fstream>

namespace quilla {
namespace {

using namespace test;

class VolumeDialogsTest : public UiTest {
  protected:
    VolumeDialogsTest() {
        OpenMainWindow();
        AddVolume(L"a");
        AddVolume(L"plain", CipherId::None);
        Select(kEnciphered);
    }

    /// The time-out that the key file of the enciphered volume holds, in minutes.
    std::uint64_t StoredMinutes() const {
        VolumeRecord record = RecordOf(kEnciphered);
        EXPECT_EQ(ReadKeyFileSummary(record), KeyFileState::Readable);
        return record.Timeout / kTimeoutUnitsPerMinute;
    }

    static void ExpectFixedFieldsLocked() {
        EXPECT_TRUE(IsReadOnly(IDC_VOLUME) && IsReadOnly(IDC_SIZE_VALUE));
        EXPECT_FALSE(IsWindowEnabled(Control(IDC_SIZE_SPIN)));
        SendMessageW(Control(IDC_SIZE_VALUE), WM_KEYDOWN, VK_UP, 1);
        EXPECT_EQ(FieldTextOf(IDC_SIZE_VALUE), L"64") << "its arrow keys count, too";
        ExpectListLocked(IDC_CIPHER);
        ExpectListLocked(IDC_SIZE_UNIT);
    }

    static void ExpectListLocked(int id) {
        const HWND list = GetDlgItem(FindOpenDialog(), id);
        const int chosen = Chosen(id);
        const std::wstring shown = TextOf(list);
        for (const WPARAM key : {VK_F4, VK_END, VK_RETURN}) {
            SendMessageW(list, WM_KEYDOWN, key, 1);
            EXPECT_EQ(Chosen(id), chosen);
        }
        EXPECT_EQ(TextOf(list), shown) << "the list has to snap back";
    }

    /// The message of the one box that a dialog has shown; empty for none.
    std::wstring OnlyMessage(MessageBoxWatcher& boxes) const {
        const std::vector<SeenBox> seen = boxes.Take();
        if (seen.empty())
            return L"";
        EXPECT_EQ(seen.size(), 1U);
        EXPECT_TRUE(seen[0].owner && seen[0].owner != window->hwnd);
        return seen[0].text;
    }

    /// Fills the dialog in, presses OK, and Cancel if that leaves it open; returns the message, if any.
    std::wstring ChangePassword(const wchar_t* old, const wchar_t* wanted, const wchar_t* confirmed) {
        MessageBoxWatcher boxes(IDYES);
        Command(IDM_CHANGE_PASSWORD, {InDialog([&] {
                    Type(IDC_OLD_PASSWORD, old);
                    Type(IDC_NEW_PASSWORD, wanted);
                    Type(IDC_CONFIRM_PASSWORD, confirmed);
                    Press(IDOK);
                    Press(IDCANCEL);
                })});
        return OnlyMessage(boxes);
    }

    static constexpr int kEnciphered = 0;
    static constexpr int kPlain = 1;
};

TEST_F(VolumeDialogsTest, MountStaysOpenAfterAWrongPassword) {
    MessageBoxWatcher boxes;
    Command(IDM_MOUNT, {InDialog([&] {
                EXPECT_EQ(GetFocus(), Control(IDC_PASSWORD));
                ExpectFixedFieldsLocked();
                EXPECT_FALSE(IsReadOnly(IDC_KEY) || IsReadOnly(IDC_TIMEOUT));
                Type(IDC_PASSWORD, L"Secret");
                Type(IDC_TIMEOUT, L"7");
                Press(IDOK);
                EXPECT_EQ(FieldTextOf(IDC_PASSWORD), L"Secret");
                EXPECT_FALSE(RecordOf(kEnciphered).IsMounted());
                Type(IDC_PASSWORD, L"secret");
                Press(IDOK);
            })});
    EXPECT_EQ(OnlyMessage(boxes), L"Incorrect password");
    const VolumeRecord& record = RecordOf(kEnciphered);
    EXPECT_TRUE(record.IsMounted());
    EXPECT_EQ(record.Key, decltype(record.Key){});
    EXPECT_EQ(record.Timeout, 7 * kTimeoutUnitsPerMinute);
    EXPECT_EQ(StoredMinutes(), 7U);
}

TEST_F(VolumeDialogsTest, ADamagedKeyFileIsToldOnce) {
    const std::wstring path = RecordOf(kEnciphered).KeyPath;
    std::ofstream(std::filesystem::path(path), std::ios::in | std::ios::binary) << 'x';
    MessageBoxWatcher boxes;
    Command(IDM_MOUNT, {InDialog([] {
                Type(IDC_PASSWORD, L"secret");
                Press(IDOK);
                Press(IDCANCEL);
            })});
    EXPECT_EQ(OnlyMessage(boxes), L"Unknown data format in file " + path);
}

/// Who asked is told both: which file is not there, and that the password has opened nothing.
TEST_F(VolumeDialogsTest, AMissingKeyFileIsToldBeforeTheWrongPassword) {
    const std::wstring path = RecordOf(kEnciphered).KeyPath;
    ASSERT_TRUE(DeleteFileW(path.c_str()));
    const auto expectBoth = [&](int command, int passwordField, const wchar_t* reason) {
        MessageBoxWatcher boxes;
        Command(command, {InDialog([passwordField] {
                    Type(passwordField, L"secret");
                    Press(IDOK);
                    Press(IDCANCEL);
                })});
        const std::vector<SeenBox> seen = boxes.Take();
        ASSERT_EQ(seen.size(), 2U);
        EXPECT_TRUE(seen[0].text.starts_with(L"Cannot open file " + path + L"\n")) << seen[0].text;
        EXPECT_EQ(seen[1].text, reason);
    };
    expectBoth(IDM_MOUNT, IDC_PASSWORD, L"Incorrect password");
    expectBoth(IDM_CHANGE_PASSWORD, IDC_OLD_PASSWORD, L"Incorrect old password");
}

TEST_F(VolumeDialogsTest, MountTakesTheKeyFileFromAnotherPlace) {
    const std::wstring moved = folder.File(L"elsewhere.key");
    ASSERT_TRUE(MoveFileW(RecordOf(kEnciphered).KeyPath, moved.c_str()));
    Command(IDM_MOUNT, {InDialog([&] {
                Type(IDC_PASSWORD, L"secret");
                Type(IDC_KEY, moved);
                Press(IDOK);
            })});
    EXPECT_TRUE(RecordOf(kEnciphered).IsMounted());
    EXPECT_EQ(Cell(kEnciphered, 3), moved);
}

/// A command line dismounts without naming the key file.
TEST_F(VolumeDialogsTest, TheListKeepsAKeyPathThatARequestLeavesOut) {
    const std::wstring keyPath = RecordOf(kEnciphered).KeyPath;
    MountRow(kEnciphered);
    VolumeRecord request{};
    CopyText(request.Path, FieldText(RecordOf(kEnciphered).Path));
    channel.SendDismountVolume(request);
    EXPECT_STREQ(request.KeyPath, L"");
    EXPECT_EQ(Cell(kEnciphered, 3), keyPath);
    EXPECT_EQ(RecordOf(kEnciphered).Cipher, CipherId::Twofish);

    // Nor does it become a plain volume because its key file is not there at the moment.
    ASSERT_TRUE(MoveFileW(keyPath.c_str(), (keyPath + L".away").c_str()));
    channel.SendQueryVolume(request);
    CopyText(request.KeyPath, keyPath);
    channel.SendQueryVolume(request);
    EXPECT_EQ(RecordOf(kEnciphered).Cipher, CipherId::None);
    MessageBoxWatcher boxes(IDNO);
    Command(IDM_MOUNT, {InDialog([&] {
                Press(IDOK);
                ASSERT_TRUE(MoveFileW((keyPath + L".away").c_str(), keyPath.c_str()));
                Press(IDOK); // it wants a password now
                EXPECT_FALSE(RecordOf(kEnciphered).IsMounted());
                Type(IDC_PASSWORD, L"secret");
                Press(IDOK);
            })});
    const std::vector<SeenBox> seen = boxes.Take();
    ASSERT_EQ(seen.size(), 1U);
    EXPECT_TRUE(seen[0].text.starts_with(L"The key file\n\n" + keyPath)) << seen[0].text;
    EXPECT_TRUE(RecordOf(kEnciphered).IsMounted());
}

/// Nobody asks for a password without a cipher, and the volume may be mounted from elsewhere meanwhile.
TEST_F(VolumeDialogsTest, MountLeavesAVolumeMountedBehindItAsItIs) {
    Select(kPlain);
    std::uint32_t device = 0;
    Command(IDM_MOUNT, {InDialog([&] {
                EXPECT_FALSE(IsWindowEnabled(Control(IDC_PASSWORD)));
                EXPECT_EQ(GetFocus(), Control(IDC_VOLUME)) << "the first stop";
                VolumeRecord request = RecordOf(kPlain);
                channel.SendMountVolume(request);
                device = request.DeviceHandle;
                Press(IDOK);
            })});
    EXPECT_NE(device, 0U);
    EXPECT_EQ(RecordOf(kPlain).DeviceHandle, device);
}

TEST_F(VolumeDialogsTest, PropertiesReachListAndKeyFile) {
    for (const bool isMounted : {false, true}) {
        const std::uint64_t minutes = isMounted ? 0 : 45;
        if (isMounted)
            MountRow(kEnciphered);
        Command(IDM_PROPERTIES, {InDialog([&] {
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
    Command(IDM_PROPERTIES, {InDialog([&] {
                VolumeRecord request = RecordOf(kEnciphered);
                channel.SendDismountVolume(request);
                Press(IDOK);
            })});
    EXPECT_FALSE(RecordOf(kEnciphered).IsMounted()) << "dismounted behind the dialog";
    const std::wstring moved = folder.File(L"moved.key");
    ASSERT_TRUE(MoveFileW(RecordOf(kEnciphered).KeyPath, moved.c_str()));
    Command(IDM_PROPERTIES, {InDialog([&] {
                Type(IDC_KEY, moved);
                Press(IDOK);
            })});
    EXPECT_EQ(Cell(kEnciphered, 3), moved);
}

TEST_F(VolumeDialogsTest, StrengthComesGoesAndIsShown) {
    const std::wstring key = RecordOf(kEnciphered).KeyPath;
    const auto change = [&](const wchar_t* old, const wchar_t* wanted, bool isStrong) {
        MessageBoxWatcher boxes(IDYES);
        Command(IDM_CHANGE_PASSWORD, {InDialog([&] {
                    const HWND box = GetDlgItem(FindOpenDialog(), IDC_STRENGTH);
                    EXPECT_EQ(SendMessageW(box, BM_GETCHECK, 0, 0) == BST_CHECKED,
                              std::filesystem::file_size(key) == kStrongKeyFileSize);
                    SendMessageW(box, BM_SETCHECK, isStrong ? BST_CHECKED : BST_UNCHECKED, 0);
                    Type(IDC_OLD_PASSWORD, old);
                    Type(IDC_NEW_PASSWORD, wanted);
                    Type(IDC_CONFIRM_PASSWORD, wanted);
                    Press(IDOK);
                })});
        EXPECT_EQ(OnlyMessage(boxes), L"");
        EXPECT_EQ(std::filesystem::file_size(key), isStrong ? kStrongKeyFileSize : kKeyFileSize);
        Command(IDM_PROPERTIES, {InDialog([&] {
                    const HWND box = GetDlgItem(FindOpenDialog(), IDC_STRENGTH);
                    EXPECT_EQ(SendMessageW(box, BM_GETCHECK, 0, 0) == BST_CHECKED, isStrong);
                    EXPECT_FALSE(IsWindowEnabled(box));
                    Press(IDCANCEL);
                })});
    };
    change(L"secret", L"one", true);
    change(L"one", L"two", true);
    {
        MessageBoxWatcher boxes;
        Command(IDM_MOUNT, {InDialog([] {
                    Type(IDC_PASSWORD, L"one");
                    Press(IDOK);
                    Press(IDCANCEL);
                })});
        EXPECT_EQ(OnlyMessage(boxes), L"Incorrect password");
    }
    EXPECT_FALSE(RecordOf(kEnciphered).IsMounted());
    change(L"two", L"three", false);
    RegDeleteKeyValueW(HKEY_CURRENT_USER, kProgramKey, L"StrengthMilliseconds");
    change(L"three", L"four", true);
    DWORD milliseconds = 0, size = sizeof(milliseconds);
    RegGetValueW(HKEY_CURRENT_USER, kProgramKey, L"StrengthMilliseconds", RRF_RT_REG_DWORD, nullptr,
                 &milliseconds, &size);
    EXPECT_TRUE(milliseconds > 0 && milliseconds < 60'000) << milliseconds;
    MountRow(kEnciphered, L"four");
    EXPECT_TRUE(RecordOf(kEnciphered).IsMounted());
}

TEST_F(VolumeDialogsTest, TooLittleMemoryIsNoWrongPassword) {
    const std::wstring path = RecordOf(kEnciphered).KeyPath;
    KeyStrength strength{};
    ASSERT_TRUE(MakeKeyStrength(strength, {.memory = 1024 * 1024, .passes = 1, .lanes = 1}));
    ASSERT_EQ(AppendKeyStrength(path.c_str(), strength), KeyFileStatus::Done);
    const std::wstring message = L"There is not enough memory for the password of file " + path;
    const MemoryLimit limit(std::size_t{256} << 20);
    {
        MessageBoxWatcher boxes;
        Command(IDM_MOUNT, {InDialog([] {
                    Type(IDC_PASSWORD, L"secret");
                    Press(IDOK);
                    Press(IDCANCEL);
                })});
        EXPECT_EQ(OnlyMessage(boxes), message);
    }
    EXPECT_EQ(ChangePassword(L"secret", L"new", L"new"), message);
    EXPECT_EQ(ChangePassword(L"secret", L"new", L"other"), message);
    EXPECT_FALSE(RecordOf(kEnciphered).IsMounted());
    EXPECT_EQ(std::filesystem::file_size(path), kStrongKeyFileSize);
}

/// The tool-tip of a dialog's option, asked for as the control does before it shows it.
std::wstring TipOfStrength(HWND dialog) {
    NMTTDISPINFOW info{};
    do
        info.hdr.hwndFrom = FindWindowExW(nullptr, info.hdr.hwndFrom, TOOLTIPS_CLASSW, nullptr);
    while (info.hdr.hwndFrom && GetWindow(info.hdr.hwndFrom, GW_OWNER) != dialog);
    TTTOOLINFOW tool{};
    tool.cbSize = TTTOOLINFOW_V1_SIZE;
    tool.hwnd = dialog;
    tool.uId = reinterpret_cast<UINT_PTR>(GetDlgItem(dialog, IDC_STRENGTH));
    EXPECT_TRUE(SendMessageW(info.hdr.hwndFrom, TTM_GETTOOLINFOW, 0, reinterpret_cast<LPARAM>(&tool)));
    info.hdr.code = TTN_GETDISPINFOW;
    SendMessageW(dialog, WM_NOTIFY, 0, reinterpret_cast<LPARAM>(&info));
    return info.lpszText ? info.lpszText : L"";
}

/// Before anything was tried here a part of the work is timed, later the whole.
TEST_F(VolumeDialogsTest, TheTipTellsWhatATryTakes) {
    const auto tip = [&](int command) {
        std::wstring text;
        Command(command, {InDialog([&] {
                    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
                    do
                        text = TipOfStrength(FindOpenDialog());
                    while (text.ends_with(L"a moment") && std::chrono::steady_clock::now() < end);
                    Press(IDCANCEL);
                })});
        return text;
    };
    const std::wstring start = L"Each try of the password takes 64 MB of memory and, here, ";
    EXPECT_TRUE(tip(IDM_CHANGE_PASSWORD).starts_with(start)) << "extrapolated";
    const DWORD remembered = 2345;
    RegSetKeyValueW(HKEY_CURRENT_USER, kProgramKey, L"StrengthMilliseconds", REG_DWORD, &remembered,
                    sizeof(remembered));
    EXPECT_EQ(tip(IDM_NEW), start + L"about 2.3 seconds");
    KeyStrength strength{};
    ASSERT_TRUE(MakeKeyStrength(strength, {.memory = 128 * 1024, .passes = 6, .lanes = 4}));
    ASSERT_EQ(AppendKeyStrength(RecordOf(kEnciphered).KeyPath, strength), KeyFileStatus::Done);
    EXPECT_EQ(tip(IDM_CHANGE_PASSWORD),
              L"Each try of the password takes 128 MB of memory and, here, about 9.4 seconds");
}

TEST_F(VolumeDialogsTest, EscEndsTheFunctionAndLeavesTheDialogOpen) {
    const std::wstring path = RecordOf(kEnciphered).KeyPath;
    KeyStrength strength{};
    ASSERT_TRUE(MakeKeyStrength(strength, {.memory = 256 * 1024, .passes = 64, .lanes = 1})); // many seconds
    ASSERT_EQ(AppendKeyStrength(path.c_str(), strength), KeyFileStatus::Done);
    MessageBoxWatcher boxes;
    Command(IDM_MOUNT, {InDialog([&] {
                Type(IDC_PASSWORD, L"secret");
                PostMessageW(FindOpenDialog(), WM_COMMAND, IDOK, 0); // once more, while it is busy
                PostMessageW(FindOpenDialog(), WM_KEYDOWN, VK_ESCAPE, 1);
                Press(IDOK);
                EXPECT_TRUE(IsWindowEnabled(Control(IDC_PASSWORD)));
                Press(IDCANCEL);
            })});
    EXPECT_TRUE(boxes.Take().empty());
    EXPECT_FALSE(RecordOf(kEnciphered).IsMounted());
}

TEST_F(VolumeDialogsTest, ChangePasswordNeedsTheOldOneAndTheNewOneTwice) {
    EXPECT_EQ(ChangePassword(L"Secret", L"new", L"other"), L"Incorrect old password");
    ASSERT_EQ(ChangePassword(L"secret", L"a new password", L"a new passworD"), L"Incorrect new password");
    EXPECT_EQ(ChangePassword(L"secret", L"new", L"new "), L"Incorrect new password");
    EXPECT_EQ(ChangePassword(L"secret", L"пароль", L"пароль"), L"");
    EXPECT_EQ(ChangePassword(L"secret", L"", L""), L"Incorrect old password");
    EXPECT_TRUE(ChangePassword(L"пароль", L"", L"").starts_with(L"The password is empty"));
    MountRow(kEnciphered, L"");
    EXPECT_TRUE(RecordOf(kEnciphered).IsMounted());
}

} // namespace
} // namespace quilla
