#pragma once

#include "ui/volume_dialog.h"

namespace quilla {

/// Shows a volume; changes its time-out, and its key file's path while it is not mounted.
class PropertiesDialog final : public VolumeDialog {
  public:
    using VolumeDialog::VolumeDialog;

    void Attach(HWND handle) override;

  protected:
    void OnOk() override;
};

} // namespace quilla
