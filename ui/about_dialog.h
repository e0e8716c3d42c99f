#pragma once

#include "toolkit/dialog.h"
#include "ui/gui_handles.h"

namespace quilla {

/// Name, version, copyright, ciphers, and the cipher kernels that the driver uses on this processor.
class AboutDialog final : public BDialog {
  public:
    void Attach(HWND handle) override;

  private:
    UniqueIcon icon_;
};

} // namespace quilla
