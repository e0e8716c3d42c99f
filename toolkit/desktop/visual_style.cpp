#include "toolkit/visual_style.h"

#include <uxtheme.h>
#include <vssym32.h>

namespace quilla {

namespace {

/// The functions of the style library. It is there already where the controls use it, and is not loaded for
/// us.
struct StyleLibrary {
    decltype(&OpenThemeData) open = Find<decltype(&OpenThemeData)>("OpenThemeData");
    decltype(&CloseThemeData) close = Find<decltype(&CloseThemeData)>("CloseThemeData");
    decltype(&IsThemePartDefined) isPartDefined = Find<decltype(&IsThemePartDefined)>("IsThemePartDefined");
    decltype(&DrawThemeBackground) draw = Find<decltype(&DrawThemeBackground)>("DrawThemeBackground");

    [[nodiscard]] bool IsComplete() const { return open && close && isPartDefined && draw; }

  private:
    template <typename Function>
    static Function Find(const char* name) {
        const HMODULE library = GetModuleHandleW(L"uxtheme.dll");
        return library ? reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(library, name)))
                       : nullptr;
    }
};

bool Draw(HWND window, HDC context, const wchar_t* className, int part, int state, const RECT& place) {
    static const StyleLibrary library;
    const HTHEME style = library.IsComplete() ? library.open(window, className) : nullptr;
    if (!style)
        return false;
    const bool drawn = library.isPartDefined(style, part, 0) &&
                       SUCCEEDED(library.draw(style, context, part, state, &place, nullptr));
    library.close(style);
    return drawn;
}

int ButtonState(ControlLook look) {
    switch (look) {
    case ControlLook::kPressed:
        return PBS_PRESSED;
    case ControlLook::kDisabled:
        return PBS_DISABLED;
    default:
        return PBS_NORMAL;
    }
}

int EditEdgeState(ControlLook look) {
    switch (look) {
    case ControlLook::kFocused:
        return EPSN_FOCUSED;
    case ControlLook::kDisabled:
        return EPSN_DISABLED;
    default:
        return EPSN_NORMAL;
    }
}

} // namespace

bool DrawStyledButton(HWND window, HDC context, ControlLook look, const RECT& place) {
    return Draw(window, context, L"BUTTON", BP_PUSHBUTTON, ButtonState(look), place);
}

bool DrawStyledEditEdge(HWND window, HDC context, ControlLook look, const RECT& place) {
    return Draw(window, context, L"EDIT", EP_EDITBORDER_NOSCROLL, EditEdgeState(look), place);
}

} // namespace quilla
