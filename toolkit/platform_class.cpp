#include "toolkit/platform_class.h"

namespace quilla {

void UsePlatformClass(WNDCLASSW& windowClass, const wchar_t* name) {
    GetClassInfoW(nullptr, name, &windowClass);
    windowClass.lpszClassName = name; // not every system gives it back
}

} // namespace quilla
