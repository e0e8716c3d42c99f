#pragma once

#include "ui/volume_dialog.h"

namespace quilla {

/// Creates a volume: after OK its files have been asked for and the caller's record describes it.
class NewVolumeDialog final : public VolumeDialog {
  public:
    using VolumeDialog::VolumeDialog;

    void Attach(HWND handle) override;
    [[nodiscard]] bool IsNewVolume() const override { return true; }

  protected:
    void OnOk() override;
};

} // namespace quilla
