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

int Application::Run(wchar_t* commandLine) {
    InitialiseControls();
    Secret<Start> start;
    start->isEmpty = IsEmptyCommandLine(commandLine);
    start->isWellFormed = ParseCommandLine(start->request, commandLine);
    if (start->request.hasPassword || !start->isWellFormed)
        WipeCommandLine(commandLine);
    if (!start->isWellFormed) // there may be a password in what was not understood
        Wipe(start->request);
    for (;;) {
        targetWindow = FindServingWindow();
        if (targetWindow == nullptr)
            return Serve(*start);
        const int exitCode = HandOn(*start);
        if (exitCode != kNobodyServes)
            return exitCode;
    }
}

/// A serving instance resets the event before it closes its window, and takes no request afterwards.
bool Application::IsTargetServing() const {
    return IsWindow(targetWindow) && WaitForSingleObject(instanceEvent.Get(), 0) == WAIT_OBJECT_0;
}

/// The window of the instance that serves; null makes this instance the one. Instances that start together
/// take turns here, so that only one finds nobody, and the others wait for it.
HWND Application::FindServingWindow() {
    const UniqueMutex turn(CreateMutexW(nullptr, FALSE, kStartMutexName));
    WaitForSingleObject(turn.Get(), INFINITE);
    serving_.Reset(CreateMutexW(nullptr, FALSE, kServingMutexName));
    instanceEvent.Reset(CreateEventW(nullptr, TRUE, FALSE, kInstanceEventName));
    const bool isThereAnother = GetLastError() == ERROR_ALREADY_EXISTS;
    HWND window = isThereAnother ? AwaitServingWindow() : nullptr;
    if (window == nullptr)
        window = SucceedInstance();
    if (window == nullptr)
        ce::EventModify(instanceEvent.Get(), ce::EVENT_RESET);
    ReleaseMutex(turn.Get());
    return window;
}

/// Waits until the other instance's window takes requests. Null when that instance has ended, or is about to.
HWND Application::AwaitServingWindow() {
    const HANDLE either[] = {instanceEvent.Get(), serving_.Get()};
    const DWORD which = WaitForMultipleObjects(2, either, FALSE, INFINITE);
    return which == WAIT_OBJECT_0 ? FindWindowW(kMainWindowClass, kMainWindowTitle) : nullptr;
}

/// Takes the mutex of the serving instance, which comes at once, or when the instance that is closing has
/// ended. Never released: it is abandoned when this instance ends, however that comes. Returns the window of
/// the other instance if it turns out to have one; one whose window is on another desktop of the session is
/// not waited for.
HWND Application::SucceedInstance() {
    constexpr DWORD kStep = 500; // milliseconds
    constexpr int kSteps = 60;
    for (int step = 0; step < kSteps; ++step) {
        if (WaitForSingleObject(serving_.Get(), kStep) != WAIT_TIMEOUT)
            return nullptr;
        targetWindow = FindWindowW(kMainWindowClass, kMainWindowTitle);
        if (IsTargetServing())
            return targetWindow;
    }
    return nullptr;
}

/// A second instance: brings the serving one to the front or has it carry out the command.
int Application::HandOn(Start& start) {
    if (start.isEmpty) {
        AllowComingToFront(targetWindow);
        const auto result = static_cast<int>(SendMessageW(targetWindow, WM_TRAYICON, 0, WM_LBUTTONDBLCLK));
        return IsTargetServing() ? result : kNobodyServes;
    }
    if (start.isWellFormed)
        return RunCommand(start.request, start.unlocked);
    ShowUsage();
    return kMalformedCommandLine;
}

/// The serving instance. With a command its window stays hidden and closes afterwards, which it refuses while
/// a volume is mounted.
int Application::Serve(Start& start) {
    DeviceExport::RemoveLeftovers();
    mainWindow.Create(nullptr, kMainWindowTitle, 0);
    if (!mainWindow.hwnd)
        return kNoWindow;
    targetWindow = mainWindow.hwnd;
    ce::EventModify(instanceEvent.Get(), ce::EVENT_SET);
    if (start.isEmpty)
        ShowWindow(mainWindow.hwnd, SW_SHOW);
    else
        RunCommandHidden(start);
    const int exitCode = Run();
    // Whoever started while the window was closing waits for the event; it finds no window and takes over.
    ce::EventModify(instanceEvent.Get(), ce::EVENT_SET);
    return exitCode;
}

void Application::RunCommandHidden(Start& start) {
    if (start.isWellFormed)
        RunCommand(start.request, start.unlocked);
    else
        ShowUsage();
    ShowNotedErrors();
    if (!IsWindowVisible(mainWindow.hwnd)) // else the user has asked for it meanwhile
        PostMessageW(mainWindow.hwnd, WM_CLOSE, 0, 0);
}

void Application::OnIdle() {
    if (mainWindow.hwnd)
        mainWindow.OnIdle();
    if (BWindow* const active = ObjectFromHandle(GetActiveWindow()))
        active->UpdateCommandStates();
}

Application& GetApplication() {
    return static_cast<Application&>(*BApplication::Current());
}

} // namespace quilla
