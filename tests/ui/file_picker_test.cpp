// The platform's file dialogs behind the browse buttons and the Open command.

#include "tests/ui/ui_fixture.h"
#include "toolkit/browse_button.h"

namespace quilla {
namespace {

using namespace test;

/// While it lives, types a name into the file dialog that opens and presses a button of it.
class Answer {
  public:
    explicit Answer(std::wstring fileName, int button = IDOK) : name_(std::move(fileName)), button_(button) {
        current_ = this;
        timer_ = SetTimer(nullptr, 0, 20, OnTimer);
    }
    ~Answer() {
        EXPECT_TRUE(isGiven_);
        KillTimer(nullptr, timer_);
    }
    Answer(const Answer&) = delete;
    Answer& operator=(const Answer&) = delete;

    std::wstring proposed; ///< what stood in the field

  private:
    static HWND NameField(HWND dialog) {
        constexpr int kNameEdit = 0x480;  // edt1 of the common dialogs' templates
        constexpr int kNameCombo = 0x47C; // cmb13
        const HWND edit = GetDlgItem(dialog, kNameEdit);
        return edit ? edit : GetDlgItem(dialog, kNameCombo);
    }

    static void CALLBACK OnTimer(HWND, UINT, UINT_PTR, DWORD) {
        Answer& self = *current_;
        const HWND dialog = OpenDialog();
        const HWND field = NameField(dialog);
        if (!field || self.isGiven_)
            return;
        self.isGiven_ = true;
        self.proposed = TextOf(field);
        SetWindowTextW(field, self.name_.c_str());
        PostMessageW(dialog, WM_COMMAND, static_cast<WPARAM>(self.button_),
                     reinterpret_cast<LPARAM>(GetDlgItem(dialog, self.button_)));
    }

    static inline Answer* current_ = nullptr;
    std::wstring name_;
    int button_;
    bool isGiven_ = false;
    UINT_PTR timer_ = 0;
};

class FilePickerTest : public UiTest {
  protected:
    FilePickerTest() { OpenMainWindow(); }
};

TEST_F(FilePickerTest, BrowsingInTheNewDialogProposesAndTakesNames) {
    const auto browse = [](int field) {
        SendMessageW(GetDlgItem(OpenDialog(), field), WM_COMMAND, kBrowseCommand, 0);
    };
    Command(IDM_NEW, {InDialog([&] {
                {
                    Type(IDC_VOLUME, L"typed");
                    const Answer answer(folder.File(L"chosen"));
                    browse(IDC_VOLUME);
                    EXPECT_EQ(answer.proposed, L"typed");
                }
                EXPECT_EQ(FieldTextOf(IDC_VOLUME), folder.File(L"chosen.raw"));
                EXPECT_EQ(FieldTextOf(IDC_KEY), folder.File(L"chosen.key"));
                {
                    const Answer answer(folder.File(L"other"));
                    browse(IDC_KEY);
                }
                EXPECT_EQ(FieldTextOf(IDC_KEY), folder.File(L"other.key"));
                {
                    const Answer answer(folder.File(L"unwanted"), IDCANCEL);
                    browse(IDC_KEY);
                }
                EXPECT_EQ(FieldTextOf(IDC_KEY), folder.File(L"other.key"));
                Press(IDCANCEL);
            })});
}

TEST_F(FilePickerTest, OpenListsAVolumeThatWasClosed) {
    const std::wstring path = AddVolume(L"a");
    Select(0);
    Command(IDM_CLOSE);
    ASSERT_EQ(CountRows(), 0);
    {
        const Answer answer(path);
        Command(IDM_OPEN);
    }
    ASSERT_EQ(CountRows(), 1);
    EXPECT_EQ(Cell(0, 0), path);
    EXPECT_EQ(Cell(0, 3), folder.File(L"a.key"));
    EXPECT_EQ(ListView_GetNextItem(List(), -1, LVNI_SELECTED), 0);

    const Answer cancelled(L"", IDCANCEL);
    Command(IDM_OPEN);
    EXPECT_EQ(cancelled.proposed, L"") << "the name of an earlier call must not show";
    EXPECT_EQ(CountRows(), 1);
}

} // namespace
} // namespace quilla
