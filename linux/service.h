#pragma once

#include "linux/message.h"
#include "linux/volume.h"
#include "platform/file.h"
#include "volume/key_block.h"

#include <string>

namespace quilla {

/// How a mounted volume reaches its user.
enum class DriveKind : std::uint8_t {
    Folder, ///< the volume's file system, mounted on a folder
    Raw,    ///< the plain content as one file in a folder
    Nbd,    ///< an NBD export on a socket of the user's
};

/// What a service is to serve.
struct ServiceOrder {
    Volume volume;
    File file;
    DriveKind kind = DriveKind::Folder;
    std::string folder;         ///< to mount on; none for an export
    bool isFolderOurs = false;  ///< made for this mount, so removed with it
    bool isFolderNamed = false; ///< the user wants this one and no other
    bool isForeground = false;
};

/// Starts the process that serves a volume until it is dismounted, and returns when the volume is mounted or
/// has failed to be; a failure has been told. In the foreground it returns at the end of the service instead.
/// The block is that of the open volume; it is wiped. `place` receives where the volume is found.
[[nodiscard]] ExitCode StartService(ServiceOrder& order, KeyBlock& block, std::string& place);

} // namespace quilla
