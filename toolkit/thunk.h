#pragma once

#include <cstdint>
#include <windows.h>

namespace quilla {

class BWindow;

/// What a stub jumps to: a window procedure whose first argument is the object instead of the window handle.
using BObjectProc = LRESULT(CALLBACK*)(BWindow* object, UINT message, WPARAM wParam, LPARAM lParam);

/// A piece of executable code of one window object, used as the procedure of its window: it replaces the
/// first argument, the window handle, by the object's address, leaves the others alone and jumps to a common
/// procedure. So the object of a window is found without a table, a window property or a look-up.
///
/// On ARM handhelds the stub lies inside the object. Elsewhere the memory of objects is not executable: there
/// stubs are cut from pages that hold nothing but stubs, are executable and never writable; what they load
/// (object and procedure) lies in a page of data beside them. There is no limit to the number of stubs.
class BThunk {
  public:
    BThunk(BWindow* object, BObjectProc procedure);
    ~BThunk();
    BThunk(const BThunk&) = delete;
    BThunk& operator=(const BThunk&) = delete;

    /// The stub as a window procedure.
    [[nodiscard]] WNDPROC Address() const;

  private:
#if defined(__arm__) || defined(_M_ARM)
    std::uint32_t words_[5];
#else
    void* stub_;
#endif
};

} // namespace quilla
