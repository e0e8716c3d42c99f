// How commands, notifications and command states find the object that handles them.

#include "toolkit/application.h"
#include "toolkit/window.h"

namespace quilla {

namespace {

/// The window that received the message being dispatched.
HWND Receiver() {
    const BMessage* const message = BApplication::Current()->currentMessage;
    return message ? message->hwnd : nullptr;
}

bool IsInsideOrSame(HWND window, HWND ancestor) {
    while (window && window != ancestor)
        window = GetParent(window);
    return window != nullptr;
}

/// The window that is activated when this one is: the nearest that is no child window.
HWND FrameOf(HWND window) {
    while (window && (GetWindowLongW(window, GWL_STYLE) & WS_CHILD) != 0)
        window = GetParent(window);
    return window;
}

void UpdateWindowTree(HWND window, BWindow& top) {
    BControlState state(GetDlgCtrlID(window), window);
    top.RouteUpdateCommand(state);
    for (HWND child = GetWindow(window, GW_CHILD); child; child = GetWindow(child, GW_HWNDNEXT)) {
        if (BWindow* const object = ObjectFromHandle(child))
            object->UpdateCommandStates();
        else
            UpdateWindowTree(child, top);
    }
}

} // namespace

LRESULT BWindow::RouteNotify(NMHDR& header) {
    BWindow* const control = ObjectFromHandle(header.hwndFrom);
    return (control ? control : this)->OnNotify(header);
}

LRESULT BWindow::OnNotify(NMHDR& header) {
    const HWND receiver = Receiver();
    BWindow* const parent = receiver == hwnd ? nullptr : ObjectFromHandle(receiver);
    return parent ? parent->OnNotify(header) : CallDefault(*this);
}

LRESULT BWindow::RouteCommand(int id, int code, HWND control) {
    if (!control || code == 0) {
        BProbeState probe(id);
        RouteUpdateCommand(probe);
        if (!probe.enabled)
            return 0;
    }
    BWindow* const target = control ? ObjectFromHandle(control) : GetFocusObject();
    return (target ? target : this)->OnCommand(id, code, control);
}

LRESULT BWindow::OnCommand(int id, int code, HWND control) {
    const HWND receiver = Receiver();
    if (receiver == hwnd)
        return CallDefault(*this);

    BWindow* next = nullptr;
    if (control && control == hwnd) {
        next = ObjectFromHandle(receiver);
        if (next && code == 0) {
            BWindow* const focused = next->GetFocusObject();
            if (focused && focused != this && !IsChild(hwnd, focused->hwnd))
                next = focused;
        }
    } else {
        next = FindObjectUpward(GetParent(hwnd));
    }
    return next ? next->OnCommand(id, code, control) : CallDefault(*this);
}

void BWindow::RouteUpdateCommand(BCommandState& state) {
    state.owner = hwnd;
    BWindow* const focused = GetFocusObject();
    (focused ? focused : this)->OnUpdateCommand(state);
}

void BWindow::OnUpdateCommand(BCommandState& state) {
    if (state.owner == hwnd)
        return;
    if (BWindow* const parent = FindObjectUpward(GetParent(hwnd)))
        parent->OnUpdateCommand(state);
}

BWindow* BWindow::GetTopLevelObject() {
    BWindow* const ancestor = FindObjectUpward(GetParent(hwnd));
    return ancestor ? ancestor->GetTopLevelObject() : this;
}

BWindow* BWindow::GetFocusObject() {
    const HWND focus = GetFocus();
    if (IsInsideOrSame(focus, hwnd))
        return FindObjectUpward(focus);
    BWindow* const frame = ObjectFromHandle(FrameOf(hwnd));
    return frame ? FindObjectUpward(frame->savedFocus) : this;
}

void BWindow::UpdateCommandStates() {
    UpdateWindowTree(hwnd, *GetTopLevelObject());
}

void BWindow::UpdateMenu(HMENU menu) {
    for (UINT position = 0;; ++position) {
        MENUITEMINFOW info = {};
        info.cbSize = sizeof(info);
        info.fMask = MIIM_ID | MIIM_SUBMENU;
        if (!GetMenuItemInfoW(menu, position, TRUE, &info))
            return;
        if (info.hSubMenu || info.wID == 0)
            continue;
        BMenuItemState state(static_cast<int>(info.wID), menu, position);
        RouteUpdateCommand(state);
    }
}

} // namespace quilla
