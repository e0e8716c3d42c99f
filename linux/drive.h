#pragma once

#include "export/fuse/server.h"
#include "linux/descriptor.h"
#include "linux/message.h"
#include "linux/service.h"
#include "platform/block_device.h"

#include <cstdint>
#include <memory>
#include <string>

namespace quilla {

/// The way from a block device to a folder of the system: a FUSE file, and for a file system a loop device
/// with the system's mount (root), or a FUSE program for it (users).
class Drive {
  public:
    /// Order and device must outlive the drive.
    Drive(const ServiceOrder& order, BlockDevice& device) : order_(order), device_(device) {}
    ~Drive() { Abandon(); }
    Drive(const Drive&) = delete;
    Drive& operator=(const Drive&) = delete;

    /// Serves and mounts; tells what went wrong and then leaves nothing mounted. `ended` (an eventfd) is
    /// signalled when the drive has gone, whoever unmounted it.
    [[nodiscard]] ExitCode Mount(int ended);

    /// Unmounts what the user sees; 0, or the error, EBUSY while somebody uses it. The drive goes when the
    /// system has written what it holds.
    [[nodiscard]] int Dismount();

    /// Takes what is in use away from new users, after writing what it holds; the drive goes with the last
    /// user.
    void Detach();

    /// Ends everything as far as that is possible and joins the threads.
    void Abandon();

    /// The folder of the file system, or the plain file.
    [[nodiscard]] std::string Place() const;
    [[nodiscard]] const std::string& LoopDevice() const { return loop_; }
    /// The device of what is mounted on the folder.
    [[nodiscard]] std::uint64_t FolderDevice() const { return folderDevice_; }
    /// The number under which the system lists the FUSE connection.
    [[nodiscard]] unsigned Connection() const { return connection_; }

  private:
    [[nodiscard]] bool IsForUsersProgram() const;
    [[nodiscard]] ExitCode MountFileSystem();
    [[nodiscard]] ExitCode MountThroughLoop();
    [[nodiscard]] ExitCode MountThroughProgram();
    [[nodiscard]] std::string PlainFile() const;

    const ServiceOrder& order_;
    BlockDevice& device_;
    std::string name_;
    std::string inner_; ///< the folder that shows the FUSE file
    std::string loop_;
    std::uint64_t folderDevice_ = 0;
    unsigned connection_ = 0;
    Descriptor fuse_;
    std::unique_ptr<fuse::Server> server_;
    bool isInnerMounted_ = false;
    bool isMounted_ = false;
};

} // namespace quilla
