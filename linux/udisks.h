#pragma once

#include <string>

/// The system's disk service, which mounts for users who sit at the machine, by its own command.
namespace quilla::udisks {

/// Whether the service is there and answers; it is started if the system starts it on demand.
[[nodiscard]] bool Answers();

/// Puts a loop device on a file of the user's that root can open. False, with what the service said.
[[nodiscard]] bool SetUpLoop(const std::string& file, bool readOnly, std::string& device, std::string& said);

/// Lets a loop device go, or, while it is in use, go with its last user.
void ReleaseLoop(const std::string& device);

/// Mounts a device where the service mounts for this user. False, with what the service said.
[[nodiscard]] bool Mount(const std::string& device, bool readOnly, std::string& folder, std::string& said);

/// Takes a mount away, lazily if that is wanted: 0, or the error.
[[nodiscard]] int Unmount(const std::string& device, bool lazily);

} // namespace quilla::udisks
