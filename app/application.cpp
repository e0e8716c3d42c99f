#include "app/application.h"

#include "app/command_worker.h"
#include "app/edition.h"
#include "app/usage.h"
#include "desktop/ce_services.h"
#include "desktop/command_line_memory.h"
#include "desktop/device_export.h"
#include "platform/error_box.h"
#include "platform/wipe.h"
#include "service/window_messages.h"

namespace quilla {

namespace {

constexpr int kMalformedCommandLine = 1;
constexpr int kNoWindow = 2;
constexpr wchar_t kStartMutexName[] = L"Orvane Quilla Tarn Start";

} // namespace

Application::Application()
    : services_{.driver = driver_, .channel = channel_, .picker = picker_, .instanceEvent = instanceEvent_},
      mainWindow_(services_) {}

int Application::Run(const wchar_t* commandLine, wchar_t** words) {
    InitialiseControls();
    Secret<Start> start;
    start->isEmpty = IsEmptyCommandLine(commandLine);
    start->isWellFormed = ParseCommandLine(start->request, commandLine);
    if (start->request.hasPassword || !start->isWellFormed)
        WipeCommandLine(words);
    if (!start->isWellFormed) // there may be a password in what was not understood
        Wipe(start->request);
    for (;;) {
        targetWindow_ = FindServingWindow();
        if (targetWindow_ == nullptr)
            return Serve(*start);
        const int exitCode = HandOn(*start);
        if (exitCode != 0 || !HasMissedTarget(start->request))
            return exitCode;
        start->request.hasPassword = false; // it is wiped: the dialog asks for it
    }
}

/// Whether the serving instance ended, with its last volume, while a mount was being prepared for it. It
/// never ends with a volume mounted.
bool Application::HasMissedTarget(const CommandLineRequest& request) const {
    return FieldText(request.command) == kMountCommand && !IsWindow(targetWindow_);
}

/// The window of the instance that serves; null makes this instance the one. Instances that start together
/// take turns here, so that only one finds nobody, and the others wait for it.
HWND Application::FindServingWindow() {
    const UniqueMutex turn(CreateMutexW(nullptr, FALSE, kStartMutexName));
    WaitForSingleObject(turn.Get(), INFINITE);
    serving_.Reset(CreateMutexW(nullptr, FALSE, kServingMutexName));
    instanceEvent_.Reset(CreateEventW(nullptr, TRUE, FALSE, kInstanceEventName));
    const bool isThereAnother = GetLastError() == ERROR_ALREADY_EXISTS;
    const HWND window = isThereAnother ? AwaitServingWindow() : nullptr;
    if (window == nullptr) {
        // Comes at once, or when the instance that is closing has ended. Never released: it is abandoned when
        // this instance ends, however that comes.
        WaitForSingleObject(serving_.Get(), INFINITE);
        ce::EventModify(instanceEvent_.Get(), ce::EVENT_RESET);
    }
    ReleaseMutex(turn.Get());
    return window;
}

/// Waits until the other instance's window takes requests. Null when that instance has ended, or is about to.
HWND Application::AwaitServingWindow() {
    const HANDLE either[] = {instanceEvent_.Get(), serving_.Get()};
    const DWORD which = WaitForMultipleObjects(2, either, FALSE, INFINITE);
    return which == WAIT_OBJECT_0 ? FindWindowW(kMainWindowClass, kMainWindowTitle) : nullptr;
}

/// A second instance: brings the serving one to the front or has it carry out the command.
int Application::HandOn(Start& start) {
    if (start.isEmpty) {
        AllowComingToFront(targetWindow_);
        return static_cast<int>(SendMessageW(targetWindow_, WM_TRAYICON, 0, WM_LBUTTONDBLCLK));
    }
    if (start.isWellFormed)
        return RunCommand(start.request, services_);
    ShowUsage();
    return kMalformedCommandLine;
}

/// The serving instance. With a command its window stays hidden and closes afterwards, which it refuses while
/// a volume is mounted.
int Application::Serve(Start& start) {
    DeviceExport::RemoveLeftovers();
    mainWindow_.Create(nullptr, kMainWindowTitle, 0);
    if (!mainWindow_.hwnd)
        return kNoWindow;
    targetWindow_ = mainWindow_.hwnd;
    ce::EventModify(instanceEvent_.Get(), ce::EVENT_SET);
    if (start.isEmpty)
        ShowWindow(mainWindow_.hwnd, SW_SHOW);
    else
        RunCommandHidden(start);
    const int exitCode = Run();
    // Whoever started while the window was closing waits for the event; it finds no window and takes over.
    ce::EventModify(instanceEvent_.Get(), ce::EVENT_SET);
    return exitCode;
}

void Application::RunCommandHidden(Start& start) {
    if (start.isWellFormed)
        RunCommand(start.request, services_);
    else
        ShowUsage();
    ShowNotedErrors();
    PostMessageW(mainWindow_.hwnd, WM_CLOSE, 0, 0);
}

void Application::OnIdle() {
    if (mainWindow_.hwnd)
        mainWindow_.OnIdle();
    if (BWindow* const active = ObjectFromHandle(GetActiveWindow()))
        active->UpdateCommandStates();
}

Application& GetApplication() {
    return static_cast<Application&>(*BApplication::Current());
}

} // namespace quilla
