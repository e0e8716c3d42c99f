#include "toolkit/window_thunk.h"

#if !defined(__arm__) && !defined(_M_ARM)

#include "toolkit/stub_pages.h"

namespace quilla {

WindowThunk::WindowThunk(BWindow& object) : stub_(AllocateStub(object)) {}

WindowThunk::~WindowThunk() {
    FreeStub(stub_);
}

WNDPROC WindowThunk::Address() const {
    return reinterpret_cast<WNDPROC>(stub_);
}

} // namespace quilla

#endif
