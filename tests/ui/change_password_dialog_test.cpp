// Changing a password: the messages, and which password opens the volume afterwards.

#include "tests/ui/ui_fixture.h"

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

    /// Fills the dialog in, presses OK, and Cancel if that leaves it open; returns the message, if any.
    std::wstring Change(const std::wstring& old, const std::wstring& wanted, const std::wstring& confirmed) {
        MessageBoxWatcher boxes;
        HWND dialog = nullptr;
        Command(IDM_CHANGE_PASSWORD, {InDialog([&] {
                    dialog = OpenDialog();
                    Type(IDC_OLD_PASSWORD, old);
                    Type(IDC_NEW_PASSWORD, wanted);
                    Type(IDC_CONFIRM_PASSWORD, confirmed);
                    Press(IDOK);
                    Press(IDCANCEL);
                })});
        const std::vector<SeenBox> seen = boxes.Take();
        if (seen.empty())
            return L"";
        EXPECT_EQ(seen[0].caption, L"Quilla Tarn Error");
        EXPECT_EQ(seen[0].owner, dialog);
        return seen[0].text;
    }

    bool Opens(const std::wstring& password) {
        MessageBoxWatcher boxes;
        Command(IDM_MOUNT, {InDialog([&] {
                    Type(IDC_PASSWORD, password);
                    Press(IDOK);
                    Press(IDCANCEL);
                })});
        const bool isOpen = RecordOf(0).IsMounted();
        Command(IDM_DISMOUNT);
        return isOpen;
    }
};

TEST_F(ChangePasswordDialogTest, NeedsTheOldPasswordAndTheNewOneTwice) {
    EXPECT_EQ(Change(L"Old", L"new", L"other"), L"Incorrect old password");
    EXPECT_EQ(Change(L"old", L"new", L"New"), L"Incorrect new password");
    EXPECT_EQ(Change(L"old", L"new", L"new "), L"Incorrect new password");
    EXPECT_EQ(Change(L"old", L"пароль", L"пароль"), L"");
    EXPECT_FALSE(Opens(L"old"));
    EXPECT_EQ(Change(L"пароль", L"", L""), L"") << "an empty password is one, too";
    EXPECT_TRUE(Opens(L""));
}

} // namespace
} // namespace quilla
