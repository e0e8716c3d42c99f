// The file field with its edit and browse button, in a real dialog.

#include "toolkit/file_field.h"

#include "tests/toolkit/toolkit_fixture.h"
#include "toolkit/dialog.h"
#include "toolkit/dpi.h"

#include <uxtheme.h>

namespace quilla {
namespace {

constexpr int kDialog = 100;
constexpr int kField = 12;
constexpr COLORREF kEditColour = RGB(0, 255, 0);
constexpr COLORREF kStaticColour = RGB(0, 0, 255);

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
    LRESULT OnMessage(BMessage& message) override {
        if (message.message != WM_CTLCOLOREDIT && message.message != WM_CTLCOLORSTATIC)
            return BDialog::OnMessage(message);
        SetDCBrushColor(reinterpret_cast<HDC>(message.wParam),
                        message.message == WM_CTLCOLOREDIT ? kEditColour : kStaticColour);
        return reinterpret_cast<LRESULT>(GetStockObject(DC_BRUSH));
    }
    CountingField field;
};

class FileFieldTest : public test::ToolkitTest {
  protected:
    void SetUp() override {
        // The dialog may be the toolkit's first window: nobody else has registered the class of its field.
        UnregisterClassW(kWindowClass, GetModuleHandleW(nullptr));
        ASSERT_NE(dialog.Create(nullptr, MAKEINTRESOURCEW(kDialog)), nullptr);
        ASSERT_TRUE(Activate(dialog.hwnd));
    }

    void Mouse(UINT message, LONG x, LONG y) {
        SendMessageW(field.button.hwnd, message, 0, MAKELPARAM(static_cast<WORD>(x), static_cast<WORD>(y)));
    }

    COLORREF Background() const {
        RedrawWindow(field.hwnd, nullptr, nullptr, RDW_INVALIDATE | RDW_ERASE | RDW_FRAME | RDW_UPDATENOW);
        const HDC context = GetWindowDC(field.hwnd);
        const COLORREF colour = GetPixel(context, GetSystemMetrics(SM_CXEDGE), 8);
        ReleaseDC(field.hwnd, context);
        return colour;
    }

    FieldDialog dialog;
    CountingField& field = dialog.field;
};

TEST_F(FileFieldTest, EditAndButtonFillTheField) {
    const int scroll = WindowMetric(field.hwnd, SM_CXVSCROLL);
    SetWindowPos(field.hwnd, nullptr, 0, 0, 200, 25, SWP_NOMOVE | SWP_NOZORDER);
    RECT client = {};
    GetClientRect(field.hwnd, &client);
    EXPECT_EQ(test::PlaceOf(field.button.hwnd),
              (RECT{client.right - scroll, 0, client.right, client.bottom}));
    EXPECT_EQ(test::PlaceOf(field.edit.hwnd), (RECT{1, 1, client.right - scroll - 1, client.bottom - 1}));
}

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

TEST_F(FileFieldTest, ShowsWhetherItCanBeEdited) {
    SetWindowTheme(field.hwnd, L" ", L" ");
    EXPECT_EQ(Background(), kEditColour);
    field.SetReadOnly(true);
    EXPECT_EQ(Background(), kStaticColour);
    field.SetReadOnly(false);
    EXPECT_EQ(Background(), kEditColour);
    EnableWindow(field.hwnd, FALSE);
    EXPECT_EQ(Background(), kStaticColour);
}

} // namespace
} // namespace quilla
