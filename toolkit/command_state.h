#pragma once

#include <windows.h>

namespace quilla {

/// A question how a command is to be shown, on its way up from the focused object: each object that knows the
/// command answers by calling the operations. The order of the operations is fixed.
class BCommandState {
  public:
    virtual void Enable(bool enable) = 0;
    virtual void SetCheck(int check) = 0;
    virtual void SetText(const wchar_t* text) = 0;
    virtual void SetReadOnly(bool readOnly) = 0;

    int id;               ///< the command or control asked about
    HWND owner = nullptr; ///< the window where the question ends; set by routing

  protected:
    explicit BCommandState(int commandId) : id(commandId) {}
    ~BCommandState() = default;
    BCommandState(const BCommandState&) = delete;
    BCommandState& operator=(const BCommandState&) = delete;
};

/// Answers go to a control.
class BControlState final : public BCommandState {
  public:
    BControlState(int commandId, HWND control) : BCommandState(commandId), target(control) {}
    void Enable(bool enable) override;
    void SetCheck(int check) override;
    void SetText(const wchar_t* text) override;
    void SetReadOnly(bool readOnly) override;

    HWND target;
};

/// Answers go to a menu item; it has neither text nor read-only state to set.
class BMenuItemState final : public BCommandState {
  public:
    BMenuItemState(int commandId, HMENU menu, UINT itemPosition)
        : BCommandState(commandId), target(menu), position(itemPosition) {}
    void Enable(bool enable) override;
    void SetCheck(int check) override;
    void SetText(const wchar_t* /*text*/) override {}
    void SetReadOnly(bool /*readOnly*/) override {}

    HMENU target;
    UINT position;
};

/// Answers go to a toolbar button; it has neither text nor read-only state to set.
class BToolbarButtonState final : public BCommandState {
  public:
    BToolbarButtonState(int commandId, HWND toolbar) : BCommandState(commandId), target(toolbar) {}
    void Enable(bool enable) override;
    void SetCheck(int check) override;
    void SetText(const wchar_t* /*text*/) override {}
    void SetReadOnly(bool /*readOnly*/) override {}

    HWND target;
};

/// Only asks whether a command is enabled, which it is until somebody objects.
class BProbeState final : public BCommandState {
  public:
    explicit BProbeState(int commandId) : BCommandState(commandId) {}
    void Enable(bool enable) override { enabled = enable; }
    void SetCheck(int /*check*/) override {}
    void SetText(const wchar_t* /*text*/) override {}
    void SetReadOnly(bool /*readOnly*/) override {}

    bool enabled = true;
};

} // namespace quilla
