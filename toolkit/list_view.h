#pragma once

#include "toolkit/window.h"

namespace quilla {

/// The platform's list view, by default with a sunken edge.
class BListView : public BWindow {
  public:
    void GetCreateDefaults(WNDCLASSW& windowClass, CREATESTRUCTW& creation) override;
};

} // namespace quilla
