#pragma once

#include "toolkit/window.h"

namespace quilla {

/// The platform's up-down control.
class BUpDown : public BWindow {
  public:
    void GetCreateDefaults(WNDCLASSW& windowClass, CREATESTRUCTW& creation) override;
};

} // namespace quilla
