// The file field with its edit and browse button, in a real dialog.

#include "toolkit/file_field.h"

#include "tests/toolkit/toolkit_fixture.h"
#include "toolkit/dialog.h"

namespace quilla {
namespace {

constexpr int kFieldDialog = 100;
constexpr int kField = 12;

class CountingField : public FileField {
  public:
    LRESULT OnNotify(NMHDR& header) override {
        if (header.hwndFrom == hwnd && header.idFrom == UINT_PTR{kField})
            browses += header.code == kBrowseNotification;
        return FileField::OnNotify(header);
    }
    int browses = 0;
};

class FieldDialog : public test::Owned<BDialog> {
  public:
    void Attach(HWND handle) override {
        BDialog::Attach(handle);
        field.Attach(GetDlgItem(handle, kField));
    }
    CountingField field;
};

class FileFieldTest : public test::ToolkitTest {
  protected:
    void SetUp() override {
        // The dialog may be the toolkit's first window: nobody else has registered the class of its field.
        UnregisterClassW(kWindowClass, GetModuleHandleW(nullptr));
        ASSERT_NE(dialog.Create(nullptr, MAKEINTRESOURCEW(kFieldDialog)), nullptr);
        ASSERT_TRUE(Activate(dialog.hwnd));
    }

    void Mouse(UINT message, LONG x, LONG y) {
        SendMessageW(field.button.hwnd, message, 0, MAKELPARAM(static_cast<WORD>(x), static_cast<WORD>(y)));
    }

    FieldDialog dialog;
    CountingField& field = dialog.field;
};

TEST_F(FileFieldTest, BrowsesByAltWithAnArrowUnlessReadOnly) {
    SetWindowTextW(field.hwnd, L"\\Storage\\Data.raw");
    EXPECT_EQ(test::TextOf(field.edit.hwnd), L"\\Storage\\Data.raw");
    SetFocus(field.hwnd);
    EXPECT_EQ(GetFocus(), field.edit.hwnd);
    for (const WPARAM key : {VK_UP, VK_DOWN})
        SendMessageW(field.edit.hwnd, WM_SYSKEYDOWN, key, 1);
    EXPECT_EQ(field.browses, 2);
    SendMessageW(field.hwnd, EM_SETREADONLY, TRUE, 0);
    EXPECT_NE(GetWindowLongW(field.edit.hwnd, GWL_STYLE) & ES_READONLY, 0);
    SendMessageW(field.edit.hwnd, WM_SYSKEYDOWN, VK_DOWN, 0);
    Mouse(WM_LBUTTONDOWN, 2, 2);
    Mouse(WM_LBUTTONUP, 2, 2);
    EXPECT_EQ(field.browses, 2);
}

TEST_F(FileFieldTest, BrowsesWhenTheButtonIsReleasedInside) {
    RECT client = {};
    GetClientRect(field.button.hwnd, &client);
    SetFocus(nullptr);
    Mouse(WM_LBUTTONDOWN, 3, 3);
    EXPECT_EQ(GetCapture(), field.button.hwnd);
    EXPECT_EQ(GetFocus(), field.edit.hwnd);
    Mouse(WM_MOUSEMOVE, -1, 3);
    EXPECT_FALSE(field.button.pressed);
    Mouse(WM_MOUSEMOVE, client.right - 1, client.bottom - 1);
    EXPECT_TRUE(field.button.pressed);
    Mouse(WM_MOUSEMOVE, 3, client.bottom);
    Mouse(WM_LBUTTONUP, 3, client.bottom);

    Mouse(WM_LBUTTONDOWN, 3, 3);
    SetCapture(dialog.hwnd);
    EXPECT_FALSE(field.button.pressed) << "the pointer has been taken away";
    ReleaseCapture();
    Mouse(WM_LBUTTONUP, 3, 3);
    EXPECT_EQ(field.browses, 0);

    Mouse(WM_LBUTTONDOWN, 3, 3);
    Mouse(WM_LBUTTONUP, 3, 3);
    EXPECT_EQ(field.browses, 1);
}

} // namespace
} // namespace quilla
