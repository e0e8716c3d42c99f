#pragma once

#include "store/volume_password.h"
#include "toolkit/controls.h"
#include "toolkit/dialog.h"
#include "ui/strength_tip.h"
#include "ui/strength_wait.h"
#include "volume/volume_record.h"

namespace quilla {

/// Enciphers a volume's key block under a new password. The volume's data and data key stay as they are.
/// The order of the fields is fixed.
class ChangePasswordDialog final : public BDialog {
  public:
    explicit ChangePasswordDialog(VolumeRecord& volume) : record(&volume) {}

    void Attach(HWND handle) override;
    LRESULT OnMessage(BMessage& message) override;
    LRESULT OnCommand(int id, int code, HWND control) override;

  private:
    void ShowStrength();
    void ChangePassword();
    [[nodiscard]] bool IsAccepted(bool isRight, const KeyAttempt& attempt);
    [[nodiscard]] bool IsOldPasswordRight();
    [[nodiscard]] bool IsNewPasswordUsable();

    VolumeRecord* record;
    BEdit oldEdit;
    BEdit newEdit;
    BEdit confirmEdit;
    StrengthWait wait_{hwnd};
    StrengthTip tip_;
};

} // namespace quilla
