// Binding, creating and closing windows, and the focus that a window remembers.

#include "toolkit/window.h"

#include "tests/toolkit/recorder.h"
#include "tests/toolkit/toolkit_fixture.h"
#include "toolkit/dialog.h"
#include "toolkit/edit.h"
#include "toolkit/window_procedure.h"

#include <cstring>
#include <thread>

namespace quilla {
namespace {

using test::Frame;
using test::Owned;

class Window : public test::ToolkitTest {};

/// Index in the table of virtual operations, by the layout that GCC and Clang give member pointers.
template <typename Member>
std::size_t SlotOf(Member member) {
    std::uintptr_t parts[2];
    static_assert(sizeof(member) == sizeof(parts));
    std::memcpy(parts, &member, sizeof(parts));
    EXPECT_EQ(parts[0] % 2, 1U) << "not virtual";
    return (parts[0] - 1) / sizeof(void*);
}

TEST_F(Window, OperationsAndFieldsKeepTheirOrder) {
    EXPECT_EQ(SlotOf(&BWindow::DefaultProc), 0U);
    EXPECT_EQ(SlotOf(&BWindow::OnMessage), 1U);
    EXPECT_EQ(SlotOf(&BWindow::OnNotify), 2U);
    EXPECT_EQ(SlotOf(&BWindow::OnCommand), 3U);
    EXPECT_EQ(SlotOf(&BWindow::OnUpdateCommand), 4U);
    EXPECT_EQ(SlotOf(&BWindow::RegisterWindowClass), 5U);
    EXPECT_EQ(SlotOf(&BWindow::GetCreateDefaults), 6U);
    EXPECT_EQ(SlotOf(static_cast<HWND (BWindow::*)(HWND, const wchar_t*, int)>(&BWindow::Create)), 7U);
    EXPECT_EQ(SlotOf(static_cast<HWND (BWindow::*)()>(&BWindow::Create)), 8U);
    EXPECT_EQ(SlotOf(&BWindow::CreateFromParams), 9U);
    EXPECT_EQ(SlotOf(&BWindow::Close), 10U);
    EXPECT_EQ(SlotOf(&BWindow::Attach), 11U);
    EXPECT_EQ(SlotOf(&BWindow::Detach), 12U);
    EXPECT_EQ(SlotOf(&BWindow::PreTranslate), 13U);
    EXPECT_EQ(SlotOf(&BWindow::Dispatch), 14U);
    EXPECT_EQ(SlotOf(&BWindow::RouteNotify), 15U);
    EXPECT_EQ(SlotOf(&BWindow::RouteCommand), 16U);
    EXPECT_EQ(SlotOf(&BWindow::RouteUpdateCommand), 17U);
    EXPECT_EQ(SlotOf(&BWindow::GetTopLevelObject), 18U);
    EXPECT_EQ(SlotOf(&BWindow::GetFocusObject), 19U);
    EXPECT_EQ(SlotOf(&BWindow::UpdateCommandStates), 20U);
    EXPECT_EQ(SlotOf(&BDialog::GetDialogDefaults), 21U);
    EXPECT_EQ(SlotOf(static_cast<HWND (BDialog::*)(HWND, const wchar_t*)>(&BDialog::Create)), 22U);
    EXPECT_EQ(SlotOf(&BDialog::CreateFromTemplate), 23U);
    EXPECT_EQ(SlotOf(static_cast<int (BDialog::*)(HWND, const wchar_t*)>(&BDialog::DoModal)), 24U);
    EXPECT_EQ(SlotOf(static_cast<int (BDialog::*)()>(&BDialog::DoModal)), 25U);
    EXPECT_EQ(SlotOf(&BDialog::RunModal), 26U);
    EXPECT_EQ(SlotOf(&BDialog::EndDialog), 27U);
    EXPECT_EQ(SlotOf(&BApplication::PumpPending), 0U);
    EXPECT_EQ(SlotOf(&BApplication::Run), 1U);
    EXPECT_EQ(SlotOf(&BApplication::ProcessMessage), 2U);
    EXPECT_EQ(SlotOf(&BApplication::PreTranslateMessage), 3U);
    EXPECT_EQ(SlotOf(&BApplication::OnIdle), 4U);

    const BDialog dialog;
    const void* const fields[] = {&dialog.hwnd, &dialog.prevProc, &dialog.savedFocus, &dialog.thunk,
                                  &dialog.modal};
    for (std::size_t i = 0; i < std::size(fields); ++i)
        EXPECT_EQ(fields[i], reinterpret_cast<const void* const*>(&dialog) + 1 + i);
}

TEST_F(Window, CreationDefaults) {
    BWindow object;
    WNDCLASSW windowClass;
    CREATESTRUCTW creation;
    std::memset(&windowClass, 0xEE, sizeof(windowClass));
    std::memset(&creation, 0xEE, sizeof(creation));
    object.GetCreateDefaults(windowClass, creation);
    EXPECT_STREQ(windowClass.lpszClassName, L"BWindow");
    EXPECT_EQ(windowClass.style, 0U);
    EXPECT_EQ(windowClass.lpfnWndProc, DefWindowProcW);
    EXPECT_EQ(windowClass.hInstance, GetModuleHandleW(nullptr));
    EXPECT_EQ(windowClass.hIcon, nullptr);
    EXPECT_EQ(windowClass.hCursor, LoadCursorW(nullptr, IDC_ARROW));
    EXPECT_EQ(windowClass.hbrBackground, nullptr);
    EXPECT_EQ(windowClass.lpszMenuName, nullptr);
    EXPECT_EQ(creation.lpCreateParams, nullptr);
    EXPECT_EQ(creation.hInstance, GetModuleHandleW(nullptr));
    EXPECT_EQ(creation.hMenu, nullptr);
    EXPECT_EQ(creation.hwndParent, nullptr);
    EXPECT_EQ(creation.cy, 0);
    EXPECT_EQ(creation.cx, CW_USEDEFAULT);
    EXPECT_EQ(creation.y, 0);
    EXPECT_EQ(creation.x, CW_USEDEFAULT);
    EXPECT_EQ(creation.style, static_cast<LONG>(0x50000000));
    EXPECT_EQ(creation.lpszName, nullptr);
    EXPECT_EQ(creation.dwExStyle, 0U);
}

TEST_F(Window, LifeOfABinding) {
    BWindow object;
    Owned<Frame> frame;
    EXPECT_EQ(object.hwnd, nullptr);
    ASSERT_NE(frame.Create(), nullptr);
    EXPECT_NE(GetWindowLongPtrW(frame.hwnd, GWLP_WNDPROC), reinterpret_cast<LONG_PTR>(DefWindowProcW));

    const HWND child = object.Create(frame.hwnd, L"name", 42);
    ASSERT_NE(child, nullptr);
    EXPECT_EQ(object.hwnd, child);
    EXPECT_EQ(ObjectFromHandle(child), &object);
    EXPECT_EQ(SendMessageW(child, 0x81C8, 0, 0), reinterpret_cast<LRESULT>(&object));
    EXPECT_EQ(GetParent(child), frame.hwnd);
    EXPECT_EQ(GetDlgCtrlID(child), 42);
    EXPECT_EQ(test::TextOf(child), L"name");

    object.Detach();
    EXPECT_EQ(object.hwnd, nullptr);
    EXPECT_EQ(object.prevProc, nullptr);
    EXPECT_TRUE(IsWindow(child));
    EXPECT_EQ(ObjectFromHandle(child), nullptr);
    EXPECT_EQ(GetWindowLongPtrW(child, GWLP_WNDPROC), reinterpret_cast<LONG_PTR>(DefWindowProcW));
    object.Detach(); // nothing happens
    object.Attach(nullptr);
    EXPECT_EQ(object.hwnd, nullptr);

    object.Attach(child);
    EXPECT_EQ(ObjectFromHandle(child), &object);
    SendMessageW(child, WM_CLOSE, 0, 0);
    EXPECT_FALSE(IsWindow(child));
    EXPECT_EQ(object.hwnd, nullptr) << "unbound by its destruction";
    EXPECT_EQ(object.prevProc, nullptr);

    ASSERT_NE(object.Create(frame.hwnd, nullptr, 0), nullptr) << "and reusable";
    object.Close();
    EXPECT_EQ(object.hwnd, nullptr);
}

TEST_F(Window, DestructionOfTheObjectLeavesTheWindow) {
    Owned<Frame> frame;
    ASSERT_NE(frame.Create(), nullptr);
    HWND child = nullptr;
    {
        BWindow object;
        child = object.Create(frame.hwnd, nullptr, 0);
    }
    EXPECT_TRUE(IsWindow(child));
}

TEST_F(Window, DestroyReachesTheReplacedProcedureAfterUnbinding) {
    static BWindow* watched = nullptr;
    static int destroyed;
    static bool wasBound;
    destroyed = 0;
    wasBound = true;
    WNDCLASSW windowClass = {};
    windowClass.lpszClassName = L"QuillaDestroyTest";
    windowClass.hInstance = GetModuleHandleW(nullptr);
    windowClass.lpfnWndProc = [](HWND window, UINT message, WPARAM wParam, LPARAM lParam) -> LRESULT {
        if (message == WM_DESTROY) {
            ++destroyed;
            wasBound = watched->hwnd != nullptr;
        }
        return DefWindowProcW(window, message, wParam, lParam);
    };
    ASSERT_NE(RegisterClassW(&windowClass), 0);
    BWindow object;
    watched = &object;
    object.Attach(CreateWindowExW(0, windowClass.lpszClassName, L"", WS_POPUP, 0, 0, 10, 10, nullptr, nullptr,
                                  windowClass.hInstance, nullptr));
    ASSERT_NE(object.hwnd, nullptr);
    object.Close();
    EXPECT_EQ(destroyed, 1);
    EXPECT_FALSE(wasBound);
    UnregisterClassW(windowClass.lpszClassName, windowClass.hInstance);
}

TEST_F(Window, FailedCreationLeavesTheObjectUnbound) {
    BWindow object;
    EXPECT_EQ(object.Create(), nullptr) << "a child without a parent";
    EXPECT_EQ(object.hwnd, nullptr);
    object.Close();
}

TEST_F(Window, PlainControlsHaveNoObject) {
    Owned<Frame> frame;
    ASSERT_NE(frame.Create(), nullptr);
    const HWND edit = CreateWindowExW(0, L"EDIT", L"", WS_CHILD | WS_VISIBLE, 0, 0, 50, 20, frame.hwnd,
                                      nullptr, nullptr, nullptr);
    EXPECT_EQ(ObjectFromHandle(edit), nullptr);
    EXPECT_EQ(FindObjectUpward(edit), &frame);
    EXPECT_EQ(ObjectFromHandle(nullptr), nullptr);
    EXPECT_EQ(FindObjectUpward(nullptr), nullptr);
    EXPECT_EQ(FindObjectUpward(GetDesktopWindow()), nullptr);
}

TEST_F(Window, WindowsOfOtherThreadsHaveNoObjectHere) {
    // One that answers the query with an address of its own would otherwise be believed.
    HWND foreign = nullptr;
    const HANDLE ready = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    const HANDLE done = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    std::thread other([&] {
        WNDCLASSW windowClass = {};
        windowClass.lpszClassName = L"QuillaForeignTest";
        windowClass.hInstance = GetModuleHandleW(nullptr);
        windowClass.lpfnWndProc = [](HWND window, UINT message, WPARAM wParam, LPARAM lParam) -> LRESULT {
            return message == kObjectQuery ? 0xBAD : DefWindowProcW(window, message, wParam, lParam);
        };
        RegisterClassW(&windowClass);
        foreign = CreateWindowExW(0, windowClass.lpszClassName, L"", WS_POPUP, 0, 0, 10, 10, nullptr, nullptr,
                                  windowClass.hInstance, nullptr);
        SetEvent(ready);
        while (MsgWaitForMultipleObjects(1, &done, FALSE, 10'000, QS_ALLINPUT) == WAIT_OBJECT_0 + 1) {
            MSG message;
            while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
                DispatchMessageW(&message);
        }
        DestroyWindow(foreign);
    });
    WaitForSingleObject(ready, 10'000);
    EXPECT_EQ(SendMessageW(foreign, kObjectQuery, 0, 0), 0xBAD);
    EXPECT_EQ(ObjectFromHandle(foreign), nullptr);
    SetEvent(done);
    other.join();
    CloseHandle(ready);
    CloseHandle(done);
}

TEST_F(Window, ClassIsRegisteredOnDemand) {
    UnregisterClassW(L"BWindow", GetModuleHandleW(nullptr));
    WNDCLASSW found;
    ASSERT_FALSE(GetClassInfoW(GetModuleHandleW(nullptr), L"BWindow", &found));
    EXPECT_TRUE(EnsureWindowClass());
    EXPECT_TRUE(EnsureWindowClass()) << "once more is no error";
    EXPECT_TRUE(GetClassInfoW(GetModuleHandleW(nullptr), L"BWindow", &found));
    UnregisterClassW(L"BWindow", GetModuleHandleW(nullptr));
    BWindow object;
    EXPECT_NE(object.RegisterWindowClass(), 0);
    EXPECT_EQ(object.RegisterWindowClass(), 0) << "taken already";
}

TEST_F(Window, NestedDispatchRestoresTheCurrentMessage) {
    class Nesting : public Owned<Frame> {
      public:
        LRESULT OnMessage(BMessage& message) override {
            const BMessage* const current = BApplication::Current()->currentMessage;
            EXPECT_EQ(current, &message);
            if (message.message == WM_APP)
                inner = SendMessageW(hwnd, WM_APP + 1, 3, 4);
            if (message.message == WM_APP + 1)
                return static_cast<LRESULT>(message.wParam) + message.lParam;
            EXPECT_EQ(BApplication::Current()->currentMessage, current);
            return Owned<Frame>::OnMessage(message);
        }
        LRESULT inner = 0;
    } frame;
    ASSERT_NE(frame.Create(), nullptr);
    SendMessageW(frame.hwnd, WM_APP, 1, 2);
    EXPECT_EQ(frame.inner, 7);
    EXPECT_EQ(application.currentMessage, nullptr);
}

class WindowFocus : public Window {
  protected:
    void SetUp() override {
        ASSERT_NE(frame.Create(), nullptr);
        ASSERT_NE(other.Create(), nullptr);
        ASSERT_NE(first.Create(frame.hwnd, nullptr, 1), nullptr);
        ASSERT_NE(second.Create(frame.hwnd, nullptr, 2), nullptr);
        ASSERT_TRUE(Activate(frame.hwnd));
    }

    Owned<Frame> frame;
    Owned<Frame> other;
    BEdit first;
    BEdit second;
};

TEST_F(WindowFocus, ReturnsToWhereItWas) {
    SetFocus(second.hwnd);
    ASSERT_TRUE(Activate(other.hwnd));
    EXPECT_EQ(frame.savedFocus, second.hwnd);
    ASSERT_TRUE(Activate(frame.hwnd));
    EXPECT_EQ(GetFocus(), second.hwnd);
}

TEST_F(WindowFocus, ActivationWithNothingSavedClearsIt) {
    SetFocus(second.hwnd);
    ASSERT_TRUE(Activate(other.hwnd));
    frame.savedFocus = nullptr;
    SendMessageW(frame.hwnd, WM_ACTIVATE, MAKEWPARAM(WA_ACTIVE, 0), 0);
    EXPECT_EQ(GetFocus(), nullptr);
}

TEST_F(WindowFocus, MinimisingKeepsWhatWasSaved) {
    SetFocus(second.hwnd);
    ASSERT_TRUE(Activate(other.hwnd));
    ASSERT_TRUE(Activate(frame.hwnd));
    SetFocus(first.hwnd);
    ShowWindow(frame.hwnd, SW_MINIMIZE);
    ASSERT_TRUE(Activate(other.hwnd));
    EXPECT_EQ(frame.savedFocus, second.hwnd) << "from the deactivation before";
}

} // namespace
} // namespace quilla
