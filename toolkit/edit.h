#pragma once

#include "toolkit/window.h"

namespace quilla {

/// The platform's edit control, by default with a sunken edge, a tab stop and automatic scrolling.
class BEdit : public BWindow {
  public:
    void GetCreateDefaults(WNDCLASSW& windowClass, CREATESTRUCTW& creation) override;
};

} // namespace quilla
