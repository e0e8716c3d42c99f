// Changing a password: the three messages, and which password opens the volume afterwards.

#include "tests/ui/ui_fixture.h"

#include <fstream>
#include <iterator>

namespace quilla {
namespace {

using namespace test;

class ChangePasswordDialogTest : public UiTest {
  protected:
    ChangePasswordDialogTest() {
        OpenMainWindow();
        AddVolume(L"a", CipherId::Cast128, L"old");
        Select(0);
    }

    std::string KeyFile() const {
        std::string content(760, '\0');
        const HANDLE file =
            CreateFileW(RecordOf(0).KeyPath, GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        DWORD size = 0;
        EXPECT_TRUE(ReadFile(file, content.data(), 760, &size, nullptr));
        CloseHandle(file);
        return content;
    }

    /// Fills the dialog in, presses OK, and Cancel if that leaves it open; returns the messages.
    std::vector<std::wstring> Change(const std::wstring& old, const std::wstring& wanted,
                                     const std::wstring& confirmed) {
        MessageBoxWatcher boxes;
        HWND dialog = nullptr;
        application.Play({InDialog([&] {
                              dialog = OpenDialog();
                              Type(IDC_OLD_PASSWORD, old);
                              Type(IDC_NEW_PASSWORD, wanted);
                              Type(IDC_CONFIRM_PASSWORD, confirmed);
                              Press(IDOK);
                          }),
                          {[&] { return !IsWindow(dialog) || OpenDialog() == dialog; },
                           [&] {
                               if (IsWindow(dialog))
                                   Press(IDCANCEL);
                           }}});
        Command(IDM_CHANGE_PASSWORD);
        application.Play({});
        std::vector<std::wstring> texts;
        for (const SeenBox& box : boxes.Take()) {
            EXPECT_EQ(box.caption, L"Quilla Tarn Error");
            EXPECT_EQ(box.owner, dialog);
            texts.push_back(box.text);
        }
        return texts;
    }

    bool Opens(const std::wstring& password) {
        MessageBoxWatcher boxes;
        Select(0);
        Command(IDM_MOUNT, {InDialog([&] {
                    Type(IDC_PASSWORD, password);
                    Press(IDOK);
                    if (!RecordOf(0).IsMounted())
                        Press(IDCANCEL);
                })});
        const bool opened = RecordOf(0).IsMounted();
        Command(IDM_DISMOUNT);
        return opened;
    }

    using Messages = std::vector<std::wstring>;
};

TEST_F(ChangePasswordDialogTest, RefusesWrongInputAndLeavesTheKeyFileAlone) {
    const std::string before = KeyFile();
    EXPECT_EQ(Change(L"Old", L"new", L"other"), Messages{L"Incorrect old password"});
    EXPECT_EQ(Change(L"old", L"new", L"New"), Messages{L"Incorrect new password"});
    EXPECT_EQ(Change(L"old", L"new", L"new "), Messages{L"Incorrect new password"});
    EXPECT_EQ(KeyFile(), before);
}

TEST_F(ChangePasswordDialogTest, TheNewPasswordOpensAndTheOldOneDoesNot) {
    EXPECT_EQ(Change(L"old", L"пароль", L"пароль"), Messages{});
    EXPECT_FALSE(Opens(L"old"));
    EXPECT_TRUE(Opens(L"пароль"));
    EXPECT_EQ(Change(L"пароль", L"", L""), Messages{}) << "an empty password is one, too";
    EXPECT_TRUE(Opens(L""));
}

TEST_F(ChangePasswordDialogTest, TheSamePasswordIsEncipheredAnew) {
    const std::string before = KeyFile();
    EXPECT_EQ(Change(L"old", L"old", L"old"), Messages{});
    const std::string after = KeyFile();
    constexpr std::size_t kBlock = 72;
    EXPECT_NE(after.substr(kBlock + 132, 20), before.substr(kBlock + 132, 20)) << "the IV";
    EXPECT_EQ(after.substr(kBlock + 128, 4), before.substr(kBlock + 128, 4)) << "the checksum";
    EXPECT_TRUE(Opens(L"old"));
}

TEST_F(ChangePasswordDialogTest, AMissingKeyFileIsNamed) {
    DeleteFileW(RecordOf(0).KeyPath);
    MessageBoxWatcher boxes;
    Command(IDM_CHANGE_PASSWORD, {InDialog([] { Press(IDOK); }), InDialog([] { Press(IDCANCEL); })});
    const std::vector<SeenBox> seen = boxes.Take();
    ASSERT_EQ(seen.size(), 2U);
    EXPECT_TRUE(seen[0].text.starts_with(L"Cannot open file " + folder.File(L"a.key")));
    EXPECT_EQ(seen[1].text, L"Incorrect old password");
}

} // namespace
} // namespace quilla
