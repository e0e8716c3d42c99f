#include "toolkit/application.h"

#include "toolkit/window.h"

namespace quilla {

namespace {

BApplication* currentApplication = nullptr;

} // namespace

BApplication::BApplication() {
    currentApplication = this;
}

BApplication::~BApplication() {
    if (currentApplication == this)
        currentApplication = nullptr;
}

BApplication* BApplication::Current() {
    return currentApplication;
}

void BApplication::PumpPending() {
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
        ProcessMessage(message);
}

int BApplication::Run() {
    MSG message = {};
    for (;;) {
        if (!PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
            OnIdle();
            GetMessageW(&message, nullptr, 0, 0);
        }
        if (message.message == WM_QUIT)
            return static_cast<int>(message.wParam);
        ProcessMessage(message);
    }
}

void BApplication::ProcessMessage(MSG& message) {
    if (PreTranslateMessage(message))
        return;
    TranslateMessage(&message);
    DispatchMessageW(&message);
}

bool BApplication::PreTranslateMessage(MSG& message) {
    for (HWND window = message.hwnd; window; window = GetParent(window)) {
        BWindow* const object = ObjectFromHandle(window);
        if (object && object->PreTranslate(message))
            return true;
    }
    return false;
}

void BApplication::OnIdle() {}

} // namespace quilla
