#include "ui/clipboard.h"

#include <cwchar>

namespace quilla {

namespace {

/// A movable copy of a text, as the clipboard wants it; null without memory.
HGLOBAL CopyToGlobalMemory(const wchar_t* text) {
    const std::size_t size = (std::wcslen(text) + 1) * sizeof(wchar_t);
    const HGLOBAL memory = GlobalAlloc(GMEM_MOVEABLE, size);
    void* const copy = memory ? GlobalLock(memory) : nullptr;
    if (!copy) {
        GlobalFree(memory);
        return nullptr;
    }
    CopyMemory(copy, text, size);
    GlobalUnlock(memory);
    return memory;
}

} // namespace

bool CopyToClipboard(HWND owner, const wchar_t* text) {
    if (!OpenClipboard(owner))
        return false;
    EmptyClipboard();
    const HGLOBAL memory = CopyToGlobalMemory(text);
    const bool placed = memory && SetClipboardData(CF_UNICODETEXT, memory);
    if (memory && !placed)
        GlobalFree(memory);
    CloseClipboard();
    return placed;
}

} // namespace quilla
