// The platform's file dialogs behind the browse buttons and the Open command.

#include "tests/ui/ui_fixture.h"
#include "toolkit/browse_button.h"
#include "ui/file_picker.h"

namespace quilla {
namespace {

using namespace test;

class FilePickerTest : public UiTest {
  protected:
    /// Types a name into the file dialog as soon as it is open and presses a button.
    class Answer {
      public:
        Answer(std::wstring fileName, int button) : name_(std::move(fileName)), button_(button) {
            current_ = this;
            timer_ = SetTimer(nullptr, 0, 20, OnTimer);
        }
        ~Answer() {
            KillTimer(nullptr, timer_);
            current_ = nullptr;
        }
        Answer(const Answer&) = delete;
        Answer& operator=(const Answer&) = delete;

        std::wstring shownName;
        std::wstring caption;
        bool answered = false;

      private:
        static constexpr int kNameEdit = 0x480;  // edt1 of the common dialogs' templates
        static constexpr int kNameCombo = 0x47C; // cmb13

        static HWND NameField(HWND dialog) {
            const HWND edit = GetDlgItem(dialog, kNameEdit);
            return edit ? edit : GetDlgItem(dialog, kNameCombo);
        }

        static void CALLBACK OnTimer(HWND, UINT, UINT_PTR, DWORD) {
            Answer& self = *current_;
            const HWND dialog = OpenDialog();
            const HWND field = NameField(dialog);
            if (!field || self.answered)
                return;
            self.answered = true;
            self.shownName = TextOf(field);
            self.caption = TextOf(dialog);
            if (!self.name_.empty())
                SetWindowTextW(field, self.name_.c_str());
            PostMessageW(dialog, WM_COMMAND, static_cast<WPARAM>(self.button_),
                         reinterpret_cast<LPARAM>(GetDlgItem(dialog, self.button_)));
        }

        static inline Answer* current_ = nullptr;
        std::wstring name_;
        int button_;
        UINT_PTR timer_ = 0;
    };
};

TEST_F(FilePickerTest, OpensAndSaves) {
    const std::wstring path = folder.MakeFile(L"a.raw", 10);
    {
        const Answer answer(path, IDOK);
        ASSERT_TRUE(picker.Open(nullptr));
        EXPECT_STREQ(picker.FileName(), path.c_str());
        EXPECT_EQ(answer.shownName, L"") << "a name of an earlier call must not show";
    }
    {
        const Answer answer(folder.File(L"new"), IDOK);
        ASSERT_TRUE(picker.Save(nullptr, L"proposal"));
        EXPECT_EQ(answer.shownName, L"proposal");
        EXPECT_EQ(picker.FileName(), folder.File(L"new.raw")) << "the filter's extension";
    }
    picker.SetFilter(kKeyFilter);
    {
        const Answer answer(folder.File(L"new"), IDOK);
        ASSERT_TRUE(picker.Save(nullptr, nullptr));
        EXPECT_EQ(picker.FileName(), folder.File(L"new.key"));
    }
    const Answer answer(L"", IDCANCEL);
    EXPECT_FALSE(picker.Open(nullptr));
}

TEST_F(FilePickerTest, BrowsingSetsBothFields) {
    OpenMainWindow();
    const Answer answer(folder.File(L"chosen"), IDOK);
    Command(IDM_NEW, {InDialog([&] {
                          SendMessageW(GetDlgItem(OpenDialog(), IDC_VOLUME), WM_COMMAND, kBrowseCommand, 0);
                      }),
                      InDialog([&] {
                          EXPECT_EQ(FieldTextOf(IDC_VOLUME), folder.File(L"chosen.raw"));
                          EXPECT_EQ(FieldTextOf(IDC_KEY), folder.File(L"chosen.key"));
                          Press(IDCANCEL);
                      })});
    EXPECT_TRUE(answer.answered);
    EXPECT_EQ(picker.Flags(), DWORD{OFN_OVERWRITEPROMPT | OFN_HIDEREADONLY | OFN_PATHMUSTEXIST});
}

TEST_F(FilePickerTest, TheOpenCommandListsTheVolume) {
    OpenMainWindow();
    const std::wstring path = AddVolume(L"a");
    Select(0);
    Command(IDM_CLOSE);
    ASSERT_EQ(CountRows(), 0);
    const Answer answer(path, IDOK);
    Command(IDM_OPEN);
    ASSERT_EQ(CountRows(), 1);
    EXPECT_EQ(Cell(0, 0), path);
    EXPECT_EQ(Cell(0, 3), folder.File(L"a.key"));
    EXPECT_EQ(ListView_GetNextItem(List(), -1, LVNI_SELECTED), 0);
}

} // namespace
} // namespace quilla
