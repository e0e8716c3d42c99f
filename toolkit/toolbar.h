#pragma once

#include "toolkit/window.h"

namespace quilla {

/// The platform's toolbar, by default without a dividing line. Its buttons follow the states of their
/// commands.
class BToolbar : public BWindow {
  public:
    void GetCreateDefaults(WNDCLASSW& windowClass, CREATESTRUCTW& creation) override;
    /// Also asks about each button's command, beginning at the toolbar's parent.
    void UpdateCommandStates() override;
};

} // namespace quilla
