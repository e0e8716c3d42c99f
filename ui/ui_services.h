#pragma once

#include "platform/win32/handle.h"
#include "service/driver_control.h"
#include "service/request_channel.h"
#include "ui/file_picker.h"

namespace quilla {

/// What the windows need of the rest of the program; handed in by whoever owns it, which outlives them.
struct UiServices {
    DriverControl& driver;
    RequestChannel& channel;
    FilePicker& picker;
    /// The single-instance event; looked at only when the main window closes for good.
    const UniqueEvent& instanceEvent;
};

} // namespace quilla
