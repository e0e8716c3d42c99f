#pragma once

#include "toolkit/handler.h"
#include "toolkit/window_thunk.h"

namespace quilla {

/// Name of the toolkit's window class, for windows and for custom controls of dialog templates.
inline constexpr wchar_t kWindowClass[] = L"BWindow";

/// An object bound to one platform window: its messages, and the notifications and commands of its controls,
/// arrive at the virtual operations. Binding replaces the window's procedure by the object's own stub, so any
/// window can be bound: one created here, a dialog, or an existing control.
///
/// The object belongs to its creator and outlives its window; WM_DESTROY unbinds it and leaves it reusable.
/// Destroying the object does not touch the window. All of it runs on the one user-interface thread.
///
/// The order of the operations (first those of BHandler) and of the fields is fixed.
class BWindow : public BHandler {
  public:
    BWindow();
    BWindow(const BWindow&) = delete;
    BWindow& operator=(const BWindow&) = delete;

    /// The replaced procedure for the window's own messages. A colour or draw message that was reflected to
    /// this control goes back to the parent's OnMessage.
    LRESULT DefaultProc(BMessage& message) override;
    /// Unbinds on WM_DESTROY, closes on WM_CLOSE, updates menu items on WM_INITMENUPOPUP, restores and keeps
    /// the focus on WM_ACTIVATE.
    LRESULT OnMessage(BMessage& message) override;
    /// Hands a notification back to the window that received it.
    LRESULT OnNotify(NMHDR& header) override;
    /// Passes a command on: from the control to the focused object (clicks) or the receiver, then up the
    /// parents.
    LRESULT OnCommand(int id, int code, HWND control) override;
    /// Passes the question up the parents until the state's owner.
    void OnUpdateCommand(BCommandState& state) override;

    /// Registers the window class of the creation defaults. Returns its atom.
    virtual ATOM RegisterWindowClass();
    /// Fills in the window class and the creation parameters; derived classes adjust them.
    virtual void GetCreateDefaults(WNDCLASSW& windowClass, CREATESTRUCTW& creation);
    /// Creates a window with the defaults and binds it. Returns its handle, or null.
    virtual HWND Create(HWND parent, const wchar_t* name, int id);
    virtual HWND Create();
    /// Creates a window, registering its class first if necessary, and binds it. Returns its handle, or null.
    virtual HWND CreateFromParams(const WNDCLASSW& windowClass, const CREATESTRUCTW& creation);
    /// Destroys the window.
    virtual void Close();
    /// Binds an unbound object to a window; nothing happens for null. Derived classes set themselves up after
    /// this.
    virtual void Attach(HWND handle);
    /// Gives the window its former procedure back.
    virtual void Detach();
    /// Sees a message of this window or of a window inside it before it is dispatched. True: it has been
    /// dealt with.
    virtual bool PreTranslate(MSG& message);
    /// Sends a message to the operation it is meant for; reflects colour and draw messages to the control.
    virtual LRESULT Dispatch(BMessage& message);
    /// Offers a notification to the object of the control that sent it, else to this one.
    virtual LRESULT RouteNotify(NMHDR& header);
    /// Offers a command to the sending control's object, or to the focused object, else to this one. Commands
    /// and clicks are dropped when their state is disabled.
    virtual LRESULT RouteCommand(int id, int code, HWND control);
    /// Asks the focused object, then its parents up to this one, about the state of a command.
    virtual void RouteUpdateCommand(BCommandState& state);
    /// The outermost bound ancestor; owners of pop-ups count as ancestors.
    virtual BWindow* GetTopLevelObject();
    /// The object that has, or after the next activation will have, the focus; may be null.
    virtual BWindow* GetFocusObject();
    /// Brings this window and everything in it up to date with the states of their commands.
    virtual void UpdateCommandStates();

    HWND hwnd = nullptr;        ///< The bound window; null while unbound.
    WNDPROC prevProc = nullptr; ///< The procedure that binding replaced; null while unbound.
    HWND savedFocus = nullptr;  ///< What had the focus when this window was last deactivated.
    WindowThunk thunk;

  private:
    LRESULT OnActivate(BMessage& message);
    LRESULT OnDestroy(BMessage& message);
    void UpdateMenu(HMENU menu);
};

/// The object bound to a window of this thread, or null.
[[nodiscard]] BWindow* ObjectFromHandle(HWND handle);

/// The object of a window or of its nearest bound parent, or null.
[[nodiscard]] BWindow* FindObjectUpward(HWND handle);

/// Makes sure that the class "BWindow" exists, which dialog templates name for their custom controls.
/// Creating a toolkit window or dialog does this by itself.
bool EnsureWindowClass();

} // namespace quilla
