#pragma once

#include <cstdint>
#include <windows.h>

namespace quilla {

class BWindow;

/// A window procedure of one object's own: a few instructions that put the object's address in place of the
/// window handle and jump to the toolkit window procedure. So the platform calls straight into the object,
/// without any table from window to object.
///
/// On 32-bit ARM handhelds the memory of objects is executable and the stub is part of the object. Elsewhere
/// stubs live in pages of their own, which are never writable and executable at once.
class WindowThunk {
  public:
    explicit WindowThunk(BWindow& object);
    ~WindowThunk();
    WindowThunk(const WindowThunk&) = delete;
    WindowThunk& operator=(const WindowThunk&) = delete;

    /// The stub's address; null only if the system had no memory left for it.
    [[nodiscard]] WNDPROC Address() const;

  private:
#if defined(__arm__) || defined(_M_ARM)
    std::uint32_t words_[5];
#else
    void* stub_;
#endif
};

} // namespace quilla
