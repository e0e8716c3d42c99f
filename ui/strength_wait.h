#pragma once

#include "volume/volume_key.h"

#include <windows.h>

namespace quilla {

/// Runs the function that slows down guessing on a thread of its own, for a dialog that stays answerable: its
/// controls rest, a mark in the row of the buttons shows how far it is, and Esc, Cancel or the close box end
/// it and leave the dialog open. Everything else goes on; nothing but the function leaves the dialog's
/// thread.
class StrengthWait final : public KeyStrengthener {
  public:
    /// The dialog may still be without a window here; it has one when a key is strengthened.
    explicit StrengthWait(const HWND& dialog) : dialog_(dialog) {}

    Argon2Result Strengthen(PasswordDigest& key, const KeyStrength& strength) override;

    /// For commands that come meanwhile.
    [[nodiscard]] bool IsRunning() const { return isRunning_; }

  private:
    [[maybe_unused]] const HWND& dialog_;
    bool isRunning_ = false;
};

} // namespace quilla
