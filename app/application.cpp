#include "app/application.h"

#include "app/command_worker.h"
#include "app/usage.h"
#include "desktop/ce_services.h"
#include "desktop/command_line_memory.h"
#include "desktop/device_export.h"
#include "platform/wipe.h"
#include "service/window_messages.h"

#include <commctrl.h>

namespace quilla {

namespace {

constexpr int kMalformedCommandLine = 1;
constexpr wchar_t kStartMutexName[] = L"Orvane Quilla Tarn Start";

void InitialiseControls() {
    const INITCOMMONCONTROLSEX classes{.dwSize = sizeof(classes),
                                       .dwICC = ICC_LISTVIEW_CLASSES | ICC_BAR_CLASSES | ICC_UPDOWN_CLASS};
    InitCommonControlsEx(&classes);
}

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
    if (CreateInstanceEvent()) {
        targetWindow_ = FindServingWindow();
        if (targetWindow_ != nullptr)
            return HandOn(*start);
    }
    return Serve(*start);
}

/// Returns whether the event existed, that is whether another instance runs.
bool Application::CreateInstanceEvent() {
    instanceEvent_.Reset();
    instanceEvent_.Reset(CreateEventW(nullptr, TRUE, FALSE, kInstanceEventName));
    return GetLastError() == ERROR_ALREADY_EXISTS;
}

/// Waits until the other instance's window takes requests; null when that instance has ended meanwhile. Of
/// several instances that wait only one finds nobody there: it starts, and the others wait for it.
HWND Application::FindServingWindow() {
    const UniqueMutex turn(CreateMutexW(nullptr, FALSE, kStartMutexName));
    WaitForSingleObject(turn.Get(), INFINITE);
    WaitForSingleObject(instanceEvent_.Get(), INFINITE);
    const HWND window = FindWindowW(kMainWindowClass, kMainWindowTitle);
    if (window == nullptr)
        ce::EventModify(instanceEvent_.Get(), ce::EVENT_RESET);
    ReleaseMutex(turn.Get());
    return window;
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
    PostMessageW(mainWindow_.hwnd, WM_CLOSE, 0, 0);
}

void Application::OnIdle() {
    if (BWindow* const active = ObjectFromHandle(GetActiveWindow()))
        active->UpdateCommandStates();
}

Application& GetApplication() {
    return static_cast<Application&>(*BApplication::Current());
}

} // namespace quilla
