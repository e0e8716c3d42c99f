// The file field with its edit and browse button, in a real dialog.

#include "toolkit/file_field.h"

#include "tests/toolkit/toolkit_fixture.h"
#include "toolkit/dialog.h"
#include "toolkit/dpi.h"

#include <uxtheme.h>

namespace quilla {
namespace {

constexpr int kFieldDialog = 101;
constexpr int kField = 102;
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
        ASSERT_NE(dialog.Create(nullptr, MAKEINTRESOURCEW(kFieldDialog)), nullptr);
        ASSERT_TRUE(Activate(dialog.hwnd));
    }

    static RECT Place(HWND window) {
        RECT place = {};
        GetWindowRect(window, &place);
        MapWindowPoints(nullptr, GetParent(window), reinterpret_cast<POINT*>(&place), 2);
        return place;
    }

    void Mouse(UINT message, int x, int y) {
        SendMessageW(field.button.hwnd, message, 0, test::PointParam(x, y));
    }

    void UseClassicLook() {
        for (const HWND window : {field.hwnd, field.button.hwnd})
            SetWindowTheme(window, L" ", L" ");
    }

    static void Redraw(HWND window) {
        RedrawWindow(window, nullptr, nullptr, RDW_INVALIDATE | RDW_ERASE | RDW_FRAME | RDW_UPDATENOW);
    }

    static COLORREF PixelOf(HWND window, int x, int y) {
        Redraw(window);
        const HDC context = GetWindowDC(window);
        const COLORREF colour = GetPixel(context, x, y);
        ReleaseDC(window, context);
        return colour;
    }
    COLORREF Edge() const { return PixelOf(field.hwnd, 0, 8); }
    COLORREF Background() const { return PixelOf(field.hwnd, GetSystemMetrics(SM_CXEDGE), 8); }
    COLORREF ButtonCorner() const { return PixelOf(field.button.hwnd, 0, 0); }

    /// The button's pixels of a colour inside its edge.
    int CountInk(COLORREF ink) const {
        Redraw(field.button.hwnd);
        RECT client = {};
        GetClientRect(field.button.hwnd, &client);
        const HDC context = GetDC(field.button.hwnd);
        int count = 0;
        for (int y = 3; y < client.bottom - 3; ++y) {
            for (int x = 3; x < client.right - 3; ++x)
                count += GetPixel(context, x, y) == ink;
        }
        ReleaseDC(field.button.hwnd, context);
        return count;
    }

    FieldDialog dialog;
    CountingField& field = dialog.field;
};

TEST_F(FileFieldTest, EditAndButtonFillTheField) {
    const int scroll = WindowMetric(field.hwnd, SM_CXVSCROLL);
    for (const int width : {200, 61}) {
        SetWindowPos(field.hwnd, nullptr, 0, 0, width, 25, SWP_NOMOVE | SWP_NOZORDER);
        RECT client = {};
        GetClientRect(field.hwnd, &client);
        const RECT button = Place(field.button.hwnd);
        const RECT expectedButton = {client.right - scroll, 0, client.right, client.bottom};
        EXPECT_TRUE(EqualRect(&button, &expectedButton)) << width;
        const RECT edit = Place(field.edit.hwnd);
        const RECT expectedEdit = {1, 1, client.right - scroll - 1, client.bottom - 1};
        EXPECT_TRUE(EqualRect(&edit, &expectedEdit)) << width;
    }
    SetWindowPos(field.hwnd, nullptr, 0, 0, 8, 25, SWP_NOMOVE | SWP_NOZORDER); // narrower than the button
    EXPECT_LE(Place(field.edit.hwnd).right, Place(field.edit.hwnd).left);
}

TEST_F(FileFieldTest, PassesTextFontAndStateOn) {
    SetWindowTextW(field.hwnd, L"\\Storage\\Data.raw");
    EXPECT_EQ(test::TextOf(field.edit.hwnd), L"\\Storage\\Data.raw");
    const auto font = reinterpret_cast<WPARAM>(GetStockObject(ANSI_FIXED_FONT));
    SendMessageW(field.hwnd, WM_SETFONT, font, TRUE);
    EXPECT_EQ(SendMessageW(field.edit.hwnd, WM_GETFONT, 0, 0), static_cast<LRESULT>(font));
    for (const BOOL flag : {FALSE, TRUE}) {
        EnableWindow(field.hwnd, flag);
        EXPECT_EQ(IsWindowEnabled(field.edit.hwnd), flag);
        EXPECT_EQ(IsWindowEnabled(field.button.hwnd), flag);
    }
}

TEST_F(FileFieldTest, BrowsesByAltWithAnArrowUnlessReadOnly) {
    SetFocus(field.hwnd);
    EXPECT_EQ(GetFocus(), field.edit.hwnd);
    test::PressKeys({VK_MENU, VK_DOWN});
    EXPECT_TRUE(PumpUntil([&] { return field.browses == 1; }));
    test::PressKeys({VK_MENU, VK_UP});
    EXPECT_TRUE(PumpUntil([&] { return field.browses == 2; }));
    SendMessageW(field.edit.hwnd, WM_SYSKEYDOWN, VK_LEFT, 0);
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
    const struct {
        LONG x, y;
        bool isInside;
    } places[] = {
        {-1, 3, false}, {0, 0, true}, {client.right, 3, false}, {client.right - 1, client.bottom - 1, true},
        {3, -5, false}, {3, 3, true}, {3, client.bottom, false}};
    SetFocus(nullptr);
    Mouse(WM_LBUTTONDOWN, 3, 3);
    EXPECT_EQ(GetCapture(), field.button.hwnd);
    EXPECT_EQ(GetFocus(), field.edit.hwnd);
    for (const auto& [x, y, isInside] : places) {
        Mouse(WM_MOUSEMOVE, x, y);
        EXPECT_EQ(field.button.pressed != 0, isInside) << x << ", " << y;
    }
    Mouse(WM_LBUTTONUP, 3, client.bottom);
    EXPECT_EQ(GetCapture(), nullptr);
    Mouse(WM_MOUSEMOVE, 3, 3);
    EXPECT_FALSE(field.button.pressed) << "without a press";

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

TEST_F(FileFieldTest, LooksLikeItsState) {
    UseClassicLook();
    const COLORREF raised = ButtonCorner();
    EXPECT_EQ(Background(), kEditColour);
    EXPECT_GT(CountInk(kBlack), 0) << "the three dots";
    Mouse(WM_LBUTTONDOWN, 3, 3);
    EXPECT_NE(ButtonCorner(), raised);
    Mouse(WM_MOUSEMOVE, -5, -5);
    EXPECT_EQ(ButtonCorner(), raised);
    Mouse(WM_LBUTTONUP, -5, -5);

    field.SetReadOnly(true);
    EXPECT_EQ(Background(), kStaticColour);
    field.SetReadOnly(false);
    EnableWindow(field.hwnd, FALSE);
    EXPECT_EQ(Background(), kStaticColour);
    EXPECT_GT(CountInk(GetSysColor(COLOR_GRAYTEXT)), 0);
    EXPECT_EQ(CountInk(kBlack), 0);
}

TEST_F(FileFieldTest, HasTheSystemsVisualStyle) {
    if (!IsThemeActive())
        GTEST_SKIP() << "no visual style on this system";
    const COLORREF classicEdge = GetSysColor(COLOR_3DSHADOW);
    EXPECT_NE(Edge(), classicEdge);
    EXPECT_EQ(PixelOf(field.hwnd, 1, 8), kEditColour) << "its line is thinner";
    EXPECT_GT(CountInk(kBlack), 0) << "the three dots";
    UseClassicLook();
    EXPECT_EQ(Edge(), classicEdge);
}

} // namespace
} // namespace quilla
