#pragma once

#include "toolkit/command_state.h"

#include <windows.h>

namespace quilla {

/// Occasions besides time-outs on which all volumes are dismounted: suspending, logging off and locking the
/// screen, each as the user has chosen in the notification icon's menu. The choices are kept beside the
/// window's place in the registry; at first only logging off is chosen.
class DismountOccasions {
  public:
    /// Reads the choices and has the window told of the session's events.
    void Begin(HWND window);
    void End();

    /// Whether a message of the window says that a chosen occasion has come.
    [[nodiscard]] bool HasCome(const MSG& message) const;

    /// Turns a choice around; false if the command is no choice.
    bool OnCommand(int id);
    /// Shows a choice; false if the question is about something else.
    bool OnUpdateCommand(BCommandState& state) const;

  private:
    static constexpr int kOccasions = 3;

    [[maybe_unused]] HWND window_ = nullptr;
    [[maybe_unused]] bool isChosen_[kOccasions] = {};
};

} // namespace quilla
