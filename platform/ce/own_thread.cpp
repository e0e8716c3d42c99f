namespace quilla {

namespace {

struct Identity {
    DWORD thread = 0;
    DWORD process = 0;
};

const Identity& OwnIdentity() {
    static const Identity identity = [] {
        Identity found;
        const HWND window = CreateWindowExW(0, L"STATIC", nullptr, 0, 0, 0, 0, 0, nullptr, nullptr,
                                            GetModuleHandleW(nullptr), nullptr);
        found.thread = GetWindowThreadProcessId(window, &found.process);
        DestroyWindow(window);
        return found;
    }();
    return identity;
}

} // namespace

DWORD OwnThreadId() {
    return OwnIdentity().thread;
}

DWORD OwnProcessId() {
    return OwnIdentity().process;
}

} // namespace quilla
