#pragma once

#include "platform/text.h"

#include <cstddef>
#include <type_traits>

namespace quilla {

/// A command line taken apart. A text is meaningful only when its flag is set. Holds the password in clear:
/// whoever owns it wipes it.
struct CommandLineRequest {
    PathText command; ///< "mount", "dismount" or "AppRunAtTime" in a well-formed request
    PathText volumePath;
    PathText keyPath;
    PathText password;
    bool hasCommand;
    bool hasVolume;
    bool hasKey;
    bool hasPassword;
};
static_assert(std::is_trivially_copyable_v<CommandLineRequest> && sizeof(CommandLineRequest) == 4 * 520 + 4);

inline constexpr TextUnit kMountCommand[] = QUILLA_TEXT("mount");
inline constexpr TextUnit kDismountCommand[] = QUILLA_TEXT("dismount");
/// The word with which the system wakes the program for the time-out check; its letter case counts.
inline constexpr TextUnit kWakeUpCommand[] = QUILLA_TEXT("AppRunAtTime");

/// Whether there is no command line at all; one of blanks is not empty (and malformed).
[[nodiscard]] bool IsEmptyCommandLine(const TextUnit* text);

/// Takes a command line (without the program's name) apart:
///
///     mount [/volume] VolumeFile.raw [/key KeyFile.key] [/password 97531]
///     dismount [/volume] VolumeFile.raw
///     AppRunAtTime
///     VolumeFile.raw
///
/// Values without an option word fill the free fields in the order command, volume, key, password; option
/// words may stand in any order and letter case. Returns whether the request is well formed; a word of more
/// than 259 units never is.
[[nodiscard]] bool ParseCommandLine(CommandLineRequest& request, const TextUnit* commandLine);

} // namespace quilla
