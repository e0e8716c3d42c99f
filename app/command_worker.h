#pragma once

#include "app/command_line.h"
#include "volume/volume_record.h"

namespace quilla {

/// No exit code: the serving instance ended before it took the command, which is to be run again.
inline constexpr int kNobodyServes = -2;

/// Carries out a well-formed request through the application's request channel, in the serving instance or in
/// another one. The password is checked here, against the key file, and wiped; without a password the Mount
/// dialog asks for it. Returns 0 when the request was handed on, whatever became of it, -1 for a wrong
/// password, or kNobodyServes. A volume that is unlocked by then, but not mounted, is left in "unlocked" for
/// the next run, which only hands it on; with an empty path there is none.
int RunCommand(CommandLineRequest& request, VolumeRecord& unlocked);

} // namespace quilla
