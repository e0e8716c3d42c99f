#include "toolkit/window_procedure.h"

#include "toolkit/application.h"
#include "toolkit/window.h"

namespace quilla {

LRESULT CALLBACK ToolkitWindowProcedure(BWindow* object, UINT message, WPARAM wParam, LPARAM lParam) {
    if (!object) // a window that has outlived its object
        return 0;
    if (message == kObjectQuery)
        return reinterpret_cast<LRESULT>(object);

    BMessage record{};
    record.hwnd = object->hwnd;
    record.message = message;
    record.wParam = wParam;
    record.lParam = lParam;
    BApplication& application = *BApplication::Current();
    BMessage* const outer = application.currentMessage;
    application.currentMessage = &record;
    const LRESULT result = object->Dispatch(record);
    application.currentMessage = outer;
    return result;
}

BWindow* ObjectFromHandle(HWND handle) {
    // A window of another thread, or of another instance of this program, must not answer with an address of
    // its own.
    if (GetWindowThreadProcessId(handle, nullptr) != GetCurrentThreadId())
        return nullptr;
    return reinterpret_cast<BWindow*>(SendMessageW(handle, kObjectQuery, 0, 0));
}

BWindow* FindObjectUpward(HWND handle) {
    for (; handle; handle = GetParent(handle)) {
        if (BWindow* const object = ObjectFromHandle(handle))
            return object;
    }
    return nullptr;
}

} // namespace quilla
