#pragma once

#include "platform/thread.h"
#include "toolkit/window.h"
#include "volume/argon2.h"

#include <atomic>

namespace quilla {

/// The tool-tip of the option that slows down guessing: it tells what a try of the password costs on this
/// machine. The time is what the function took the last time; before the first time a small part of the work
/// is done on a thread of its own, a few milliseconds long, and its time extrapolated. Handhelds have none.
class StrengthTip final : public BWindow {
  public:
    /// Adds the tip to a dialog that has the option.
    void Show(HWND dialog, const Argon2Cost& cost = kDefaultArgon2Cost);

    LRESULT OnNotify(NMHDR& header) override;

    /// Keeps how long the function took.
    static void Remember(const Argon2Cost& cost, std::uint64_t milliseconds);

  private:
    [[nodiscard]] unsigned Milliseconds() const;

    Argon2Cost cost_ = kDefaultArgon2Cost;
    wchar_t text_[160]{};
    unsigned remembered_ = 0; ///< milliseconds at the default cost; 0 = not known
    std::atomic<unsigned> extrapolated_{0};
    Thread measuring_; ///< the last member: it writes to the others
};

} // namespace quilla
