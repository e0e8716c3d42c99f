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
constexpr COLORREF kBlack = RGB(0, 0, 0);

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

    static COLORREF PixelOf(HWND window, int x, int y) {
        RedrawWindow(window, nullptr, nullptr, RDW_INVALIDATE | RDW_ERASE | RDW_FRAME | RDW_UPDATENOW);
        const HDC context = GetWindowDC(window);
        const COLORREF colour = GetPixel(context, x, y);
        ReleaseDC(window, context);
        return colour;
    }
    COLORREF Edge() const { return PixelOf(field.hwnd, 0, 8); }
    COLORREF Background() const { return PixelOf(field.hwnd, GetSystemMetrics(SM_CXEDGE), 8); }
    COLORREF ButtonCorner() const { return PixelOf(field.button.hwnd, 0, 0); }

    /// Whether the button shows its dots in a colour.
    bool HasDots(COLORREF colour) const {
        RECT client = {};
        GetClientRect(field.button.hwnd, &client);
        bool found = false;
        for (int y = 3; y < client.bottom - 3; ++y)
            for (int x = 3; x < client.right - 3; ++x)
                found |= PixelOf(field.button.hwnd, x, y) == colour;
        return found;
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
    SetWindowPos(field.hwnd, nullptr, 0, 0, 8, 25, SWP_NOMOVE | SWP_NOZORDER); // narrower than the button
    EXPECT_LE(test::PlaceOf(field.edit.hwnd).right, test::PlaceOf(field.edit.hwnd).left);
}

TEST_F(FileFieldTest, BrowsesByAltWithAnArrowUnlessReadOnly) {
    SetWindowTextW(field.hwnd, L"\\Storage\\Data.raw");
    EXPECT_EQ(test::TextOf(field.edit.hwnd), L"\\Storage\\Data.raw");
    SetFocus(field.hwnd);
    EXPECT_EQ(GetFocus(), field.edit.hwnd);
    test::PressKeys({VK_MENU, VK_DOWN});
    EXPECT_TRUE(PumpUntil([&] { return field.browses == 1; }));
    test::PressKeys({VK_MENU, VK_UP});
    EXPECT_TRUE(PumpUntil([&] { return field.browses == 2; }));

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
    const std::pair<POINT, bool> places[] = {{{-1, 3}, false},
                                             {{0, 0}, true},
                                             {{client.right, 3}, false},
                                             {{client.right - 1, client.bottom - 1}, true},
                                             {{3, client.bottom}, false}};
    SetFocus(nullptr);
    Mouse(WM_LBUTTONDOWN, 3, 3);
    EXPECT_EQ(GetCapture(), field.button.hwnd);
    EXPECT_EQ(GetFocus(), field.edit.hwnd);
    for (const auto& [point, isInside] : places) {
        Mouse(WM_MOUSEMOVE, point.x, point.y);
        EXPECT_EQ(field.button.pressed != 0, isInside) << point.x << ", " << point.y;
    }
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

TEST_F(FileFieldTest, LooksLikeItsStateInBothStyles) {
    const COLORREF classicEdge = GetSysColor(COLOR_3DSHADOW);
    if (IsThemeActive()) {
        EXPECT_NE(Edge(), classicEdge);
        EXPECT_EQ(PixelOf(field.hwnd, 1, 8), kEditColour) << "its line is thinner";
        EXPECT_TRUE(HasDots(kBlack));
    }
    for (const HWND window : {field.hwnd, field.button.hwnd})
        SetWindowTheme(window, L" ", L" ");
    EXPECT_EQ(Edge(), classicEdge);
    EXPECT_EQ(Background(), kEditColour);
    EXPECT_TRUE(HasDots(kBlack));
    const COLORREF raised = ButtonCorner();
    Mouse(WM_LBUTTONDOWN, 3, 3);
    EXPECT_NE(ButtonCorner(), raised);
    Mouse(WM_LBUTTONUP, -5, -5);

    field.SetReadOnly(true);
    EXPECT_EQ(Background(), kStaticColour);
    field.SetReadOnly(false);
    EnableWindow(field.hwnd, FALSE);
    EXPECT_EQ(Background(), kStaticColour);
    EXPECT_TRUE(HasDots(GetSysColor(COLOR_GRAYTEXT)));
    EXPECT_FALSE(HasDots(kBlack));
}

} // namespace
} // namespace quilla
