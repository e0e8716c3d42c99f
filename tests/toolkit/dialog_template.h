#pragma once

#include <string_view>
#include <vector>
#include <windows.h>

namespace quilla::test {

/// Builds a DLGTEMPLATE in memory.
class DialogTemplate {
  public:
    DialogTemplate(std::wstring_view caption, short width, short height,
                   DWORD style = WS_POPUP | WS_VISIBLE | WS_CAPTION | WS_SYSMENU | DS_CENTER |
                                 DS_MODALFRAME) {
        Put32(style);
        Put32(0); // extended style
        Put16(0); // number of items, counted up
        for (const short value : {short{0}, short{0}, width, height})
            Put16(static_cast<WORD>(value));
        Put16(0); // no menu
        Put16(0); // the standard class
        PutText(caption);
    }

    DialogTemplate& Add(WORD id, std::wstring_view className, std::wstring_view text, RECT place, DWORD style,
                        DWORD extendedStyle = 0) {
        if (words_.size() % 2 != 0)
            Put16(0); // items start at multiples of four bytes
        Put32(style | WS_CHILD | WS_VISIBLE);
        Put32(extendedStyle);
        for (const LONG value : {place.left, place.top, place.right - place.left, place.bottom - place.top})
            Put16(static_cast<WORD>(value));
        Put16(id);
        PutText(className);
        PutText(text);
        Put16(0); // no creation data
        ++words_[kCountAt];
        return *this;
    }

    const DLGTEMPLATE* Get() const { return reinterpret_cast<const DLGTEMPLATE*>(words_.data()); }

  private:
    static constexpr std::size_t kCountAt = 4;

    void Put16(WORD value) { words_.push_back(value); }
    void Put32(DWORD value) {
        Put16(LOWORD(value));
        Put16(HIWORD(value));
    }
    void PutText(std::wstring_view text) {
        for (const wchar_t unit : text)
            Put16(unit);
        Put16(0);
    }

    std::vector<WORD> words_;
};

} // namespace quilla::test
