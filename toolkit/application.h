#pragma once

#include "toolkit/handler.h"

namespace quilla {

/// The message loop of the program. Exactly one object exists while the toolkit is in use. The order of the
/// operations is fixed.
class BApplication {
  public:
    BApplication();
    ~BApplication();
    BApplication(const BApplication&) = delete;
    BApplication& operator=(const BApplication&) = delete;

    /// Processes what is in the queue and returns when it is empty. A WM_QUIT among it is used up.
    virtual void PumpPending();
    /// Runs until WM_QUIT and returns its code. Modal dialogs run it nested; each WM_QUIT ends the innermost
    /// run.
    virtual int Run();
    /// Translates and dispatches one message, unless it is dealt with before that.
    virtual void ProcessMessage(MSG& message);
    /// Offers a message to the objects of its window and of its parents; true if one of them has dealt with
    /// it.
    virtual bool PreTranslateMessage(MSG& message);
    /// Called each time the queue has run dry, before the thread waits; nothing here.
    virtual void OnIdle();

    BMessage* currentMessage = nullptr; ///< The message being dispatched; null outside dispatch.

    /// The application object, or null.
    [[nodiscard]] static BApplication* Current();
};

} // namespace quilla
