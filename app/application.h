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
    /// The message loop, also of modal dialogs.
    using BApplication::Run;

    /// The whole life of an instance, from its command line (without the program's name) to its exit code. A
    /// line with a password in it is wiped in place, with all its copies.
    int Run(wchar_t* commandLine);

    /// Brings the command states of the active window up to date.
    void OnIdle() override;

    /// What windows and commands need of the program.
    [[nodiscard]] const UiServices& Services() const { return services_; }

    /// Whether the target window takes requests. If not, what has been sent to it may have met nobody.
    [[nodiscard]] bool IsTargetServing() const;

  private:
    /// A command line and what came of parsing it.
    struct Start {
        CommandLineRequest request;
        VolumeRecord unlocked; ///< see RunCommand
        bool isEmpty;
        bool isWellFormed;
    };

    [[nodiscard]] HWND FindServingWindow();
    [[nodiscard]] HWND AwaitServingWindow();
    [[nodiscard]] HWND SucceedInstance();
    int HandOn(Start& start);
    int Serve(Start& start);
    void RunCommandHidden(Start& start);

    // The windows below use these until they are gone.
    UniqueMutex serving_;
    DriverControl driver_;
    RequestChannel channel_{targetWindow};
    FilePicker picker_{kVolumeFilter};
    UiServices services_{
        .driver = driver_, .channel = channel_, .picker = picker_, .instanceEvent = instanceEvent};

  public:
    /// The named event: exists while an instance runs, signalled while its window takes requests.
    UniqueEvent instanceEvent;
    /// The one top-level window; without a handle in an instance that does not serve.
    MainWindow mainWindow{services_};
    /// The window that serves requests: the own main window in the serving instance, that instance's in
    /// others. Null before either is known.
    HWND targetWindow = nullptr;
};

/// The application object of this process.
[[nodiscard]] Application& GetApplication();

} // namespace quilla
