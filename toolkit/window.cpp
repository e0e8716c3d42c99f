#include "toolkit/window.h"

namespace quilla {

namespace {

WNDPROC ReplaceProcedure(HWND window, WNDPROC procedure) {
    return reinterpret_cast<WNDPROC>(
        SetWindowLongPtrW(window, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(procedure)));
}

bool IsColourOrDrawMessage(UINT message) {
    return message == WM_DRAWITEM || (message >= WM_CTLCOLORMSGBOX && message <= WM_CTLCOLORSTATIC);
}

HWND ControlOf(const BMessage& message) {
    return message.message == WM_DRAWITEM ? reinterpret_cast<const DRAWITEMSTRUCT*>(message.lParam)->hwndItem
                                          : reinterpret_cast<HWND>(message.lParam);
}

/// Notifications come from the thread's own controls. What another program sends may be no address at all.
bool IsNotification(LPARAM header) {
    NMHDR copy{};
    SIZE_T size = 0;
    return !InSendMessage() || (ReadProcessMemory(GetCurrentProcess(), reinterpret_cast<const void*>(header),
                                                  &copy, sizeof(copy), &size) &&
                                GetWindowThreadProcessId(copy.hwndFrom, nullptr) == GetCurrentThreadId());
}

} // namespace

BWindow::BWindow() : thunk(*this) {}

LRESULT BWindow::DefaultProc(BMessage& message) {
    if (message.hwnd == hwnd)
        return CallWindowProcW(prevProc, message.hwnd, message.message, message.wParam, message.lParam);
    if (!IsColourOrDrawMessage(message.message))
        return 0;
    BWindow* const parent = ObjectFromHandle(message.hwnd);
    return parent ? parent->OnMessage(message) : 0;
}

LRESULT BWindow::Dispatch(BMessage& message) {
    if (message.message == WM_COMMAND) {
        RouteCommand(LOWORD(message.wParam), HIWORD(message.wParam), reinterpret_cast<HWND>(message.lParam));
        return 0;
    }
    if (message.message == WM_NOTIFY && !IsNotification(message.lParam))
        return 0;
    if (message.message == WM_NOTIFY)
        return RouteNotify(*reinterpret_cast<NMHDR*>(message.lParam));
    if (IsColourOrDrawMessage(message.message)) {
        if (BWindow* const control = ObjectFromHandle(ControlOf(message)))
            return control->OnMessage(message);
    }
    return OnMessage(message);
}

LRESULT BWindow::OnMessage(BMessage& message) {
    switch (message.message) {
    case WM_DESTROY:
        return OnDestroy(message);
    case WM_CLOSE:
        Close();
        return 0;
    case WM_INITMENUPOPUP:
        UpdateMenu(reinterpret_cast<HMENU>(message.wParam));
        return 0;
    case WM_ACTIVATE:
        return OnActivate(message);
    default:
        return CallDefault(*this);
    }
}

LRESULT BWindow::OnDestroy(BMessage& message) {
    const WNDPROC former = prevProc;
    Detach();
    CallWindowProcW(former, message.hwnd, message.message, message.wParam, message.lParam);
    return 0;
}

LRESULT BWindow::OnActivate(BMessage& message) {
    CallDefault(*this);
    const bool minimised = HIWORD(message.wParam) != 0;
    if (LOWORD(message.wParam) != WA_INACTIVE)
        SetFocus(savedFocus);
    else if (!minimised)
        savedFocus = GetFocus();
    return 0;
}

ATOM BWindow::RegisterWindowClass() {
    WNDCLASSW windowClass;
    CREATESTRUCTW creation;
    GetCreateDefaults(windowClass, creation);
    return RegisterClassW(&windowClass);
}

void BWindow::GetCreateDefaults(WNDCLASSW& windowClass, CREATESTRUCTW& creation) {
    windowClass = {};
    windowClass.lpfnWndProc = DefWindowProcW;
    windowClass.hInstance = GetModuleHandleW(nullptr);
    windowClass.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    windowClass.lpszClassName = kWindowClass;

    creation = {};
    creation.hInstance = windowClass.hInstance;
    creation.cx = CW_USEDEFAULT;
    creation.x = CW_USEDEFAULT;
    creation.style = WS_CHILD | WS_VISIBLE;
}

HWND BWindow::Create(HWND parent, const wchar_t* name, int id) {
    WNDCLASSW windowClass;
    CREATESTRUCTW creation;
    GetCreateDefaults(windowClass, creation);
    creation.hwndParent = parent;
    creation.lpszName = name;
    creation.hMenu = reinterpret_cast<HMENU>(static_cast<INT_PTR>(id));
    return CreateFromParams(windowClass, creation);
}

HWND BWindow::Create() {
    WNDCLASSW windowClass;
    CREATESTRUCTW creation;
    GetCreateDefaults(windowClass, creation);
    return CreateFromParams(windowClass, creation);
}

HWND BWindow::CreateFromParams(const WNDCLASSW& windowClass, const CREATESTRUCTW& creation) {
    WNDCLASSW existing;
    if (!GetClassInfoW(windowClass.hInstance, windowClass.lpszClassName, &existing))
        RegisterClassW(&windowClass);
    const HWND created =
        CreateWindowExW(creation.dwExStyle, windowClass.lpszClassName, creation.lpszName,
                        static_cast<DWORD>(creation.style), creation.x, creation.y, creation.cx, creation.cy,
                        creation.hwndParent, creation.hMenu, creation.hInstance, creation.lpCreateParams);
    Attach(created);
    return created;
}

void BWindow::Close() {
    DestroyWindow(hwnd);
}

void BWindow::Attach(HWND handle) {
    if (!handle || !thunk.Address())
        return;
    hwnd = handle;
    prevProc = ReplaceProcedure(handle, thunk.Address());
}

void BWindow::Detach() {
    if (!hwnd)
        return;
    ReplaceProcedure(hwnd, prevProc);
    hwnd = nullptr;
    prevProc = nullptr;
}

bool BWindow::PreTranslate(MSG&) {
    return false;
}

bool EnsureWindowClass() {
    WNDCLASSW existing;
    return GetClassInfoW(GetModuleHandleW(nullptr), kWindowClass, &existing) ||
           BWindow().RegisterWindowClass() != 0;
}

} // namespace quilla
