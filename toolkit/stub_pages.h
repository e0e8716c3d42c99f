#pragma once

namespace quilla {

class BWindow;

/// Stubs for processors on which the memory of objects is not executable. They stand in code pages that are
/// written once and executable from then on; what changes, the addresses of the objects, stands in writable
/// pages beside them. No page is ever writable and executable at once. For the user-interface thread only.

/// A stub that leads to the toolkit window procedure with this object; null if memory has run out.
[[nodiscard]] void* AllocateStub(BWindow& object);

/// Takes a stub back; nothing for null.
void FreeStub(void* stub);

} // namespace quilla
