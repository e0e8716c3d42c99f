#pragma once

#include "ui/volume_dialog.h"

namespace quilla {

/// Asks for a volume's password, checks it against the key file and has the volume mounted.
class MountDialog final : public VolumeDialog {
  public:
    using VolumeDialog::VolumeDialog;

    void Attach(HWND handle) override;

  protected:
    void OnOk() override;

  private:
    [[nodiscard]] bool IsKeyFileUsable();
};

} // namespace quilla
