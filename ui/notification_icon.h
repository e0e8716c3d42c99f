#pragma once

#include "ui/gui_handles.h"

#include <windows.h>

namespace quilla {

/// The program's icon in the notification area. Its mouse messages arrive at the owner as WM_TRAYICON.
class NotificationIcon {
  public:
    NotificationIcon() = default;
    NotificationIcon(const NotificationIcon&) = delete;
    NotificationIcon& operator=(const NotificationIcon&) = delete;

    /// Adds the icon for a window, with the window's small icon and its title as the tip, or the icon with
    /// the mark of mounted volumes while there are any. Called again when the shell has been started anew and
    /// has forgotten all icons.
    void Add(HWND owner);

    /// Follows a change of the window's small icon.
    void UpdateIcon();

    /// Shows by the icon whether volumes are mounted, and says in the tip how many.
    void ShowMounted(int count);

    /// Shows a notice beside the icon for a while; nothing is asked and nothing waits for it.
    void ShowNotice(const wchar_t* title, const wchar_t* text, DWORD kind);

    void Remove();

  private:
    void LoadMark();
    [[nodiscard]] HICON Icon() const;

    HWND owner_ = nullptr;
    int mounted_ = 0;
    UniqueIcon mark_; ///< of mounted volumes; empty on a handheld
};

} // namespace quilla
