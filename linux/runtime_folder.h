#pragma once

#include <string>
#include <vector>

namespace quilla {

/// Where the mounted volumes of a user are found: /run/quilla for root, else a folder of the user's session
/// (XDG_RUNTIME_DIR), else one in /tmp. Nobody else can look into it. Empty if there cannot be one.
[[nodiscard]] std::string RuntimeFolder();

/// The control socket of a mounted volume, what its service wrote down, the folder in which its plain file
/// appears, and the socket of its NBD export.
[[nodiscard]] std::string ControlPath(const std::string& id);
[[nodiscard]] std::string StatePath(const std::string& id);
[[nodiscard]] std::string DrivePath(const std::string& id);
[[nodiscard]] std::string NbdPath(const std::string& id);

/// The ids that have a control socket, dead ones included.
[[nodiscard]] std::vector<std::string> KnownIds();

} // namespace quilla
