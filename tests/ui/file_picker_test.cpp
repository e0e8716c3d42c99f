// The platform's file dialogs behind the browse buttons and the Open command.

#include "tests/ui/ui_fixture.h"

namespace quilla {
namespace {

using namespace test;

class FilePickerTest : public UiTest {
  protected:
    FilePickerTest() { OpenMainWindow(); }

    /// Opens a file dialog, types a name into it and presses a button. Returns the name that it proposed.
    static std::wstring Answer(const std::wstring& name, int button, const std::function<void()>& open) {
        std::wstring proposed;
        const Meanwhile answer([&] { return TypeName(name, button, proposed) != nullptr; });
        open();
        return proposed;
    }

    /// Whether a file dialog says what is wrong with a name and stays; it is cancelled then.
    static bool IsRefused(const std::wstring& name, const std::function<void()>& open) {
        MessageBoxWatcher boxes;
        std::wstring proposed;
        HWND dialog = nullptr;
        bool isTold = false;
        const Meanwhile answer([&] {
            if (!dialog)
                dialog = TypeName(name, IDOK, proposed);
            isTold |= !boxes.Take().empty();
            return isTold && IsWindowEnabled(dialog) && PostMessageW(dialog, WM_COMMAND, IDCANCEL, 0);
        });
        open();
        return isTold;
    }

    /// Types a name into the file dialog that is open, if there is one, and presses a button of it.
    static HWND TypeName(const std::wstring& name, int button, std::wstring& proposed) {
        constexpr int kNameEdit = 0x480;  // edt1 of the common dialogs' templates
        constexpr int kNameCombo = 0x47C; // cmb13
        const HWND dialog = FindOpenDialog();
        const HWND edit = GetDlgItem(dialog, kNameEdit);
        const HWND field = edit ? edit : GetDlgItem(dialog, kNameCombo);
        if (!field)
            return nullptr;
        proposed = TextOf(field);
        SetWindowTextW(field, name.c_str());
        PostMessageW(dialog, WM_COMMAND, static_cast<WPARAM>(button),
                     reinterpret_cast<LPARAM>(GetDlgItem(dialog, button)));
        return dialog;
    }

    /// The same by the keyboard in a field of the New dialog: in the edit, or on the button behind it.
    static std::wstring Browse(int id, const std::wstring& name, int button) {
        return Answer(name, button, [id] { SendMessageW(Control(id), WM_SYSKEYDOWN, VK_DOWN, 1); });
    }
    static std::wstring BrowseByButton(int id, const std::wstring& name, int button) {
        const HWND stop = GetNextDlgTabItem(FindOpenDialog(), Control(id), FALSE);
        EXPECT_EQ(GetParent(stop), GetParent(Control(id)));
        EXPECT_FALSE(IsChild(GetParent(stop), GetNextDlgTabItem(FindOpenDialog(), stop, FALSE)));
        return Answer(name, button, [stop] { SendMessageW(stop, WM_KEYDOWN, VK_SPACE, 1); });
    }
};

TEST_F(FilePickerTest, BrowsingInTheNewDialogProposesAndTakesNames) {
    Command(IDM_NEW, {InDialog([&] {
                Type(IDC_VOLUME, L"typed");
                EXPECT_EQ(Browse(IDC_VOLUME, folder.File(L"chosen"), IDOK), L"typed");
                EXPECT_EQ(FieldTextOf(IDC_VOLUME), folder.File(L"chosen.raw"));
                EXPECT_EQ(FieldTextOf(IDC_KEY), folder.File(L"chosen.key"));
                BrowseByButton(IDC_KEY, folder.File(L"other"), IDOK);
                Browse(IDC_KEY, folder.File(L"unwanted"), IDCANCEL);
                EXPECT_EQ(FieldTextOf(IDC_KEY), folder.File(L"other.key"));
                Press(IDCANCEL);
            })});
}

TEST_F(FilePickerTest, OpenListsAVolumeThatWasClosed) {
    const std::wstring path = AddVolume(L"a");
    Select(0);
    Command(IDM_CLOSE);
    ASSERT_EQ(CountRows(), 0);
    const auto open = [this] { Command(IDM_OPEN); };
    Answer(path, IDOK, open);
    ASSERT_EQ(CountRows(), 1);
    EXPECT_EQ(Cell(0, 0), path);
    EXPECT_EQ(Cell(0, 3), folder.File(L"a.key"));
    EXPECT_EQ(ListView_GetNextItem(List(), -1, LVNI_SELECTED), 0);
    EXPECT_EQ(Answer(L"", IDCANCEL, open), L"") << "the name of an earlier call must not show";
    EXPECT_EQ(CountRows(), 1);
    CloseMainWindow();
    OpenMainWindow();
    EXPECT_EQ(CountRows(), 1) << "the list has been saved";

    EXPECT_TRUE(IsRefused(folder.File(L"mistyped.raw"), open));
    EXPECT_EQ(CountRows(), 1);
}

} // namespace
} // namespace quilla
