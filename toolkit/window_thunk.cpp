#include "toolkit/window_thunk.h"

#if defined(__arm__) || defined(_M_ARM)

#include "toolkit/stub_code.h"
#include "toolkit/window_procedure.h"

#include <algorithm>

namespace quilla {

WindowThunk::WindowThunk(BWindow& object) {
    const auto code = stub::EncodeArm(reinterpret_cast<std::uint32_t>(&object),
                                      reinterpret_cast<std::uint32_t>(&ToolkitWindowProcedure));
    std::copy(code.begin(), code.end(), words_);
    FlushInstructionCache(GetCurrentProcess(), words_, sizeof(words_));
}

WindowThunk::~WindowThunk() = default;

WNDPROC WindowThunk::Address() const {
    return reinterpret_cast<WNDPROC>(reinterpret_cast<std::uintptr_t>(words_));
}

} // namespace quilla

#else

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
