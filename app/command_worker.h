#pragma once

#include "app/command_line.h"

namespace quilla {

/// Carries out a well-formed request through the application's request channel, in the serving instance or in
/// another one. The password is checked here, against the key file, and wiped; without a password the Mount
/// dialog asks for it. Returns 0 when the request was handed on, whatever became of it, and -1 for a wrong
/// password.
int RunCommand(CommandLineRequest& request);

} // namespace quilla
