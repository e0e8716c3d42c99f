#pragma once

#include "app/command_line.h"
#include "platform/win32/handle.h"
#include "service/driver_control.h"
#include "service/request_channel.h"
#include "toolkit/application.h"
#include "ui/file_picker.h"
#include "ui/main_window.h"
#include "ui/ui_services.h"

namespace quilla {

/// The program: one instance per session serves, others hand their command to it and end.
class Application final : public BApplication {
  public:
    Application();

    /// The message loop, also of modal dialogs.
    using BApplication::Run;

    /// The whole life of an instance, from its command line (without the program's name) to its exit code.
    /// words are the words of the same command line; where a password is among them, both are wiped.
    int Run(const wchar_t* commandLine, wchar_t** words);

    /// Brings the command states of the active window up to date.
    void OnIdle() override;

    /// The window that serves requests: the own main window in the serving instance, that instance's in
    /// others. Null before either is known.
    [[nodiscard]] HWND TargetWindow() const { return targetWindow_; }

  private:
    /// A command line and what came of parsing it.
    struct Start {
        CommandLineRequest request;
        bool isEmpty;
        bool isWellFormed;
    };

    [[nodiscard]] HWND FindServingWindow();
    [[nodiscard]] HWND AwaitServingWindow();
    int HandOn(Start& start);
    [[nodiscard]] bool HasMissedTarget(const CommandLineRequest& request) const;
    int Serve(Start& start);
    void RunCommandHidden(Start& start);

    UniqueEvent instanceEvent_;
    UniqueMutex serving_;
    HWND targetWindow_ = nullptr;
    DriverControl driver_;
    RequestChannel channel_{targetWindow_};
    FilePicker picker_{kVolumeFilter};
    UiServices services_;
    MainWindow mainWindow_;
};

/// The application object of this process.
[[nodiscard]] Application& GetApplication();

} // namespace quilla
