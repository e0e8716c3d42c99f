// The file field with its edit and browse button, in a real dialog.

#include "toolkit/file_field.h"

#include "tests/toolkit/toolkit_fixture.h"
#include "toolkit/dialog.h"
#include "toolkit/dpi.h"

#include <commctrl.h>
#include <uxtheme.h>

namespace quilla {
namespace {

using test::DialogTemplate;

constexpr int kBefore = 10;
constexpr int kField = 102;
constexpr int kAfter = 12;

class RecordingField : public FileField {
  public:
    LRESULT OnNotify(NMHDR& header) override {
        if (header.hwndFrom == hwnd)
            notified.push_back(header);
        return FileField::OnNotify(header);
    }
    std::vector<NMHDR> notified;
};

class FieldDialog : public BDialog {
  public:
    explicit FieldDialog(DWORD fieldExtendedStyle) {
        layout_.Add(kBefore, L"EDIT", L"", {4, 4, 80, 16}, WS_TABSTOP | WS_BORDER)
            .Add(kField, kWindowClass, L"", {4, 20, 80, 32}, WS_TABSTOP, fieldExtendedStyle)
            .Add(kAfter, L"EDIT", L"", {4, 36, 80, 48}, WS_TABSTOP | WS_BORDER)
            .Add(IDOK, L"BUTTON", L"OK", {4, 60, 40, 74}, WS_TABSTOP | BS_DEFPUSHBUTTON);
    }
    ~FieldDialog() {
        if (hwnd)
            DestroyWindow(hwnd);
    }
    void GetDialogDefaults(DialogParams& params) override {
        BDialog::GetDialogDefaults(params);
        params.inMemory = layout_.Get();
    }
    void Attach(HWND handle) override {
        BDialog::Attach(handle);
        field.Attach(GetDlgItem(handle, kField));
    }
    LRESULT OnNotify(NMHDR& header) override {
        notified.push_back(header);
        return BDialog::OnNotify(header);
    }
    LRESULT OnMessage(BMessage& message) override {
        if (colours && (message.message == WM_CTLCOLOREDIT || message.message == WM_CTLCOLORSTATIC)) {
            SetDCBrushColor(reinterpret_cast<HDC>(message.wParam),
                            message.message == WM_CTLCOLOREDIT ? kEditColour : kStaticColour);
            return reinterpret_cast<LRESULT>(GetStockObject(DC_BRUSH));
        }
        return BDialog::OnMessage(message);
    }

    static constexpr COLORREF kEditColour = RGB(0, 255, 0);
    static constexpr COLORREF kStaticColour = RGB(0, 0, 255);
    RecordingField field;
    std::vector<NMHDR> notified;
    bool colours = false;

  private:
    DialogTemplate layout_{L"Fields", 120, 90};
};

class FileFieldTest : public test::ToolkitTest, public ::testing::WithParamInterface<DWORD> {
  protected:
    void SetUp() override {
        ASSERT_NE(dialog.Create(), nullptr);
        ASSERT_TRUE(Activate(dialog.hwnd));
        PumpUntil([] { return true; });
        field.notified.clear();
        dialog.notified.clear();
    }

    std::size_t CountNotified(UINT code) const {
        std::size_t count = 0;
        for (const NMHDR& header : field.notified) {
            EXPECT_EQ(header.idFrom, static_cast<UINT_PTR>(kField));
            count += header.code == code;
        }
        return count;
    }
    std::size_t Browses() const { return CountNotified(FileField::kBrowseNotification); }

    static RECT Place(HWND window) {
        RECT place = {};
        GetWindowRect(window, &place);
        MapWindowPoints(nullptr, GetParent(window), reinterpret_cast<POINT*>(&place), 2);
        return place;
    }

    void Mouse(UINT message, int x, int y) {
        SendMessageW(field.button.hwnd, message, 0, test::PointParam(x, y));
    }

    FieldDialog dialog{GetParam()};
    RecordingField& field = dialog.field;
};

INSTANTIATE_TEST_SUITE_P(Fields, FileFieldTest,
                         ::testing::Values(DWORD{WS_EX_CLIENTEDGE},
                                           DWORD{WS_EX_CLIENTEDGE | WS_EX_CONTROLPARENT}));

TEST_P(FileFieldTest, EditAndButtonFillTheField) {
    ASSERT_NE(field.edit.hwnd, nullptr);
    ASSERT_NE(field.button.hwnd, nullptr);
    EXPECT_EQ(GetParent(field.edit.hwnd), field.hwnd);
    EXPECT_EQ(GetParent(field.button.hwnd), field.hwnd);
    EXPECT_EQ(GetWindowLongW(field.edit.hwnd, GWL_EXSTYLE) & WS_EX_CLIENTEDGE, 0);

    const int scroll = WindowMetric(field.hwnd, SM_CXVSCROLL);
    for (const int width : {200, 61}) {
        SetWindowPos(field.hwnd, nullptr, 0, 0, width, 25, SWP_NOMOVE | SWP_NOZORDER);
        RECT client = {};
        GetClientRect(field.hwnd, &client);
        const RECT edit = Place(field.edit.hwnd);
        const RECT button = Place(field.button.hwnd);
        EXPECT_EQ(edit.left, 1);
        EXPECT_EQ(edit.top, 1);
        EXPECT_EQ(edit.right, client.right - scroll - 1);
        EXPECT_EQ(edit.bottom, client.bottom - 1);
        EXPECT_EQ(button.left, client.right - scroll);
        EXPECT_EQ(button.top, 0);
        EXPECT_EQ(button.right, client.right);
        EXPECT_EQ(button.bottom, client.bottom);
    }
    SetWindowPos(field.hwnd, nullptr, 0, 0, 8, 25, SWP_NOMOVE | SWP_NOZORDER); // narrower than the button
    EXPECT_LE(Place(field.edit.hwnd).right, Place(field.edit.hwnd).left);
}

TEST_P(FileFieldTest, TabOrderPassesThroughTheField) {
    SetFocus(GetDlgItem(dialog.hwnd, kBefore));
    const HWND order[] = {field.edit.hwnd, GetDlgItem(dialog.hwnd, kAfter), GetDlgItem(dialog.hwnd, IDOK),
                          GetDlgItem(dialog.hwnd, kBefore), field.edit.hwnd};
    for (std::size_t i = 0; i < std::size(order); ++i) {
        test::PressKeys({VK_TAB});
        ASSERT_TRUE(PumpUntil([&] { return GetFocus() == order[i]; }, std::chrono::seconds(2)))
            << "tab " << i << " is at " << GetDlgCtrlID(GetFocus());
    }
    const HWND back[] = {GetDlgItem(dialog.hwnd, kBefore), GetDlgItem(dialog.hwnd, IDOK),
                         GetDlgItem(dialog.hwnd, kAfter), field.edit.hwnd, GetDlgItem(dialog.hwnd, kBefore)};
    for (std::size_t i = 0; i < std::size(back); ++i) {
        test::PressKeys({VK_SHIFT, VK_TAB});
        ASSERT_TRUE(PumpUntil([&] { return GetFocus() == back[i]; }, std::chrono::seconds(2)))
            << "back tab " << i << " is at " << GetDlgCtrlID(GetFocus());
    }
}

TEST_P(FileFieldTest, FocusGoesToTheEditAndItsLossIsReported) {
    SetFocus(field.hwnd);
    EXPECT_EQ(GetFocus(), field.edit.hwnd);
    EXPECT_EQ(CountNotified(static_cast<UINT>(NM_KILLFOCUS)), 0U);
    SetFocus(GetDlgItem(dialog.hwnd, kAfter));
    EXPECT_EQ(CountNotified(static_cast<UINT>(NM_KILLFOCUS)), 1U);
    EXPECT_EQ(dialog.notified.size(), 1U) << "what the field does not handle goes to the dialog";
}

TEST_P(FileFieldTest, TextGoesToTheEdit) {
    SetWindowTextW(field.hwnd, L"\\Storage\\Data.raw");
    EXPECT_EQ(test::TextOf(field.edit.hwnd), L"\\Storage\\Data.raw");
    SetFocus(field.edit.hwnd);
    test::PressKeys({VK_END});
    test::PressKeys({'X'});
    EXPECT_TRUE(PumpUntil([&] { return test::TextOf(field.edit.hwnd) == L"\\Storage\\Data.rawx"; }));
}

TEST_P(FileFieldTest, EnterAndEscAreTheDialogs) {
    SetFocus(field.edit.hwnd);
    test::PressKeys({VK_RETURN});
    ASSERT_TRUE(PumpUntil([&] { return dialog.hwnd == nullptr; }));
    ASSERT_NE(dialog.Create(), nullptr);
    ASSERT_TRUE(Activate(dialog.hwnd));
    SetFocus(field.edit.hwnd);
    test::PressKeys({VK_ESCAPE});
    EXPECT_TRUE(PumpUntil([&] { return dialog.hwnd == nullptr; }));
}

TEST_P(FileFieldTest, FontReachesTheEdit) {
    const auto font = reinterpret_cast<WPARAM>(GetStockObject(ANSI_FIXED_FONT));
    SendMessageW(field.hwnd, WM_SETFONT, font, TRUE);
    EXPECT_EQ(SendMessageW(field.edit.hwnd, WM_GETFONT, 0, 0), static_cast<LRESULT>(font));
}

TEST_P(FileFieldTest, AltWithAnArrowBrowses) {
    SetFocus(field.edit.hwnd);
    test::PressKeys({VK_MENU, VK_DOWN});
    EXPECT_TRUE(PumpUntil([&] { return Browses() == 1; }));
    test::PressKeys({VK_MENU, VK_UP});
    EXPECT_TRUE(PumpUntil([&] { return Browses() == 2; }));
    SendMessageW(field.edit.hwnd, WM_SYSKEYDOWN, VK_LEFT, 0);
    EXPECT_EQ(Browses(), 2U);
    EXPECT_EQ(GetFocus(), field.edit.hwnd);
}

TEST_P(FileFieldTest, ReadOnlyNeitherBrowsesNorTakesText) {
    SendMessageW(field.hwnd, EM_SETREADONLY, TRUE, 0);
    EXPECT_TRUE(field.readOnly);
    EXPECT_NE(GetWindowLongW(field.edit.hwnd, GWL_STYLE) & ES_READONLY, 0);
    SendMessageW(field.edit.hwnd, WM_SYSKEYDOWN, VK_DOWN, 0);
    Mouse(WM_LBUTTONDOWN, 2, 2);
    Mouse(WM_LBUTTONUP, 2, 2);
    EXPECT_EQ(Browses(), 0U);
    field.SetReadOnly(false);
    EXPECT_EQ(GetWindowLongW(field.edit.hwnd, GWL_STYLE) & ES_READONLY, 0);
    SendMessageW(field.edit.hwnd, WM_SYSKEYDOWN, VK_DOWN, 0);
    EXPECT_EQ(Browses(), 1U);
}

TEST_P(FileFieldTest, ReadOnlyBeforeItsWindowIsThere) {
    RecordingField early;
    early.readOnly = 1;
    ASSERT_NE(early.Create(dialog.hwnd, nullptr, 55), nullptr);
    EXPECT_NE(GetWindowLongW(early.edit.hwnd, GWL_STYLE) & ES_READONLY, 0);
    DestroyWindow(early.hwnd);
    EXPECT_EQ(early.edit.hwnd, nullptr);
}

TEST_P(FileFieldTest, DisablingReachesEditAndButton) {
    EnableWindow(field.hwnd, FALSE);
    EXPECT_FALSE(IsWindowEnabled(field.edit.hwnd));
    EXPECT_FALSE(IsWindowEnabled(field.button.hwnd));
    EnableWindow(field.hwnd, TRUE);
    EXPECT_TRUE(IsWindowEnabled(field.edit.hwnd));
    EXPECT_TRUE(IsWindowEnabled(field.button.hwnd));
}

TEST_P(FileFieldTest, BackgroundHasTheColourOfItsState) {
    dialog.colours = true;
    const auto background = [&] {
        RedrawWindow(field.hwnd, nullptr, nullptr,
                     RDW_INVALIDATE | RDW_ERASE | RDW_UPDATENOW | RDW_ALLCHILDREN);
        const HDC context = GetDC(field.hwnd);
        const COLORREF colour = GetPixel(context, 0, 5); // left of the edit
        ReleaseDC(field.hwnd, context);
        return colour;
    };
    EXPECT_EQ(background(), FieldDialog::kEditColour);
    field.SetReadOnly(true);
    EXPECT_EQ(background(), FieldDialog::kStaticColour);
    field.SetReadOnly(false);
    EnableWindow(field.hwnd, FALSE);
    EXPECT_EQ(background(), FieldDialog::kStaticColour);
    EnableWindow(field.hwnd, TRUE);
    EXPECT_EQ(background(), FieldDialog::kEditColour);
}

TEST_P(FileFieldTest, ButtonPressedAndReleasedBrowses) {
    SetFocus(GetDlgItem(dialog.hwnd, kBefore));
    Mouse(WM_LBUTTONDOWN, 3, 3);
    EXPECT_TRUE(field.button.pressed);
    EXPECT_EQ(GetCapture(), field.button.hwnd);
    EXPECT_EQ(GetFocus(), field.edit.hwnd);
    EXPECT_EQ(Browses(), 0U);
    Mouse(WM_LBUTTONUP, 3, 3);
    EXPECT_FALSE(field.button.pressed);
    EXPECT_EQ(GetCapture(), nullptr);
    EXPECT_EQ(GetFocus(), field.edit.hwnd);
    EXPECT_EQ(Browses(), 1U);
}

TEST_P(FileFieldTest, ButtonSlidOffAndOnAgain) {
    RECT client = {};
    GetClientRect(field.button.hwnd, &client);
    Mouse(WM_LBUTTONDOWN, 3, 3);
    struct Point {
        LONG x, y;
        bool inside;
    };
    for (const Point& point :
         {Point{-1, 3, false}, Point{0, 0, true}, Point{client.right, 3, false},
          Point{client.right - 1, client.bottom - 1, true}, Point{3, client.bottom, false},
          Point{3, -5, false}, Point{3, 3, true}, Point{-300, -300, false}}) {
        Mouse(WM_MOUSEMOVE, point.x, point.y);
        EXPECT_EQ(field.button.pressed != 0, point.inside) << point.x << ", " << point.y;
    }
    Mouse(WM_LBUTTONUP, -300, -300);
    EXPECT_EQ(Browses(), 0U);
    EXPECT_EQ(GetCapture(), nullptr);

    Mouse(WM_MOUSEMOVE, 3, 3); // without a press
    EXPECT_FALSE(field.button.pressed);
    Mouse(WM_LBUTTONUP, 3, 3);
    EXPECT_EQ(Browses(), 0U);
}

TEST_P(FileFieldTest, ButtonThatLosesThePointerComesUp) {
    Mouse(WM_LBUTTONDOWN, 3, 3);
    SetCapture(dialog.hwnd);
    EXPECT_FALSE(field.button.pressed);
    ReleaseCapture();
    Mouse(WM_LBUTTONUP, 3, 3);
    EXPECT_EQ(Browses(), 0U);
}

/// What is on the screen, in the classic look of the controls and in the system's visual style.
class FileFieldLook : public FileFieldTest {
  protected:
    void SetUp() override {
        FileFieldTest::SetUp();
        dialog.colours = true;
    }

    void UseClassicLook() {
        for (const HWND window : {field.hwnd, field.button.hwnd})
            SetWindowTheme(window, L" ", L" ");
    }

    static void Redraw(HWND window) {
        RedrawWindow(window, nullptr, nullptr, RDW_INVALIDATE | RDW_ERASE | RDW_FRAME | RDW_UPDATENOW);
    }

    struct Drawn {
        COLORREF corner;
        int ink; ///< pixels of the colour asked for, inside the edge
        bool operator==(const Drawn&) const = default;
    };

    Drawn DrawButton(COLORREF ink) {
        const HWND window = field.button.hwnd;
        Redraw(window);
        RECT client = {};
        GetClientRect(window, &client);
        const HDC context = GetDC(window);
        Drawn drawn = {GetPixel(context, 0, 0), 0};
        for (int y = 3; y < client.bottom - 3; ++y) {
            for (int x = 3; x < client.right - 3; ++x)
                drawn.ink += GetPixel(context, x, y) == ink;
        }
        ReleaseDC(window, context);
        return drawn;
    }

    COLORREF EdgePixel(int distance) {
        Redraw(field.hwnd);
        const HDC context = GetWindowDC(field.hwnd);
        const COLORREF colour = GetPixel(context, distance, 8);
        ReleaseDC(field.hwnd, context);
        return colour;
    }
};

INSTANTIATE_TEST_SUITE_P(Fields, FileFieldLook, ::testing::Values(DWORD{WS_EX_CLIENTEDGE}));

TEST_P(FileFieldLook, ClassicButtonIsRaisedPressedAndDisabled) {
    constexpr COLORREF black = RGB(0, 0, 0);
    UseClassicLook();
    const Drawn raised = DrawButton(black);
    EXPECT_GT(raised.ink, 0) << "the three dots";
    EXPECT_LT(raised.ink, 60);
    Mouse(WM_LBUTTONDOWN, 3, 3);
    EXPECT_NE(DrawButton(black).corner, raised.corner) << "the edge is sunken";
    Mouse(WM_MOUSEMOVE, -5, -5);
    EXPECT_EQ(DrawButton(black), raised);
    Mouse(WM_LBUTTONUP, -5, -5);
    EnableWindow(field.hwnd, FALSE);
    EXPECT_GT(DrawButton(GetSysColor(COLOR_GRAYTEXT)).ink, 0);
    EXPECT_EQ(DrawButton(black).ink, 0);
}

TEST_P(FileFieldLook, StyledFieldLooksLikeAnEdit) {
    const HWND edit = CreateWindowExW(WS_EX_CLIENTEDGE, L"EDIT", L"", WS_CHILD | WS_VISIBLE, 200, 10, 80, 24,
                                      dialog.hwnd, nullptr, nullptr, nullptr);
    if (!IsThemeActive())
        GTEST_SKIP() << "no visual style on this system";
    Redraw(edit);
    const HDC context = GetWindowDC(edit);
    const COLORREF line = GetPixel(context, 0, 8);
    ReleaseDC(edit, context);

    EXPECT_EQ(EdgePixel(0), line);
    EXPECT_EQ(EdgePixel(1), FieldDialog::kEditColour);
    field.SetReadOnly(true);
    EXPECT_EQ(EdgePixel(1), FieldDialog::kStaticColour);
    EXPECT_GT(DrawButton(RGB(0, 0, 0)).ink, 0) << "the three dots";
    UseClassicLook();
    EXPECT_EQ(EdgePixel(0), GetSysColor(COLOR_3DSHADOW));
}

TEST(Dpi, LengthsScaleWithTheWindowsResolution) {
    const HWND desktop = GetDesktopWindow();
    const auto dpi = static_cast<int>(WindowDpi(desktop));
    ASSERT_GE(dpi, 48);
    EXPECT_EQ(ScaleToWindow(desktop, 96), dpi);
    EXPECT_GT(WindowMetric(desktop, SM_CXVSCROLL), 0);
}

} // namespace
} // namespace quilla
