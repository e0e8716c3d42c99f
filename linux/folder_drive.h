#pragma once

#include "export/fuse/server.h"
#include "linux/descriptor.h"
#include "linux/drive.h"
#include "linux/service.h"

#include <cstdint>
#include <memory>
#include <string>

namespace quilla {

/// The way from a block device to a folder of the system: a FUSE file, and for a file system a loop device
/// with the system's mount (root), or a FUSE program for it (users).
class FolderDrive final : public Drive {
  public:
    FolderDrive(const ServiceOrder& order, BlockDevice& device) : order_(order), device_(device) {}
    ~FolderDrive() override { Abandon(); }

    [[nodiscard]] ExitCode Mount(int ended) override;
    [[nodiscard]] int Dismount() override;
    void Detach() override;
    void Abandon() override;
    void Describe(MountState& state) const override;

  private:
    /// What stands on the FUSE file.
    enum class Way : std::uint8_t {
        File,    ///< nothing
        Loop,    ///< a loop device and the system's mount, as root
        Udisks,  ///< the same by the system's disk service, which chooses the folder
        Program, ///< a FUSE program for the file system
    };

    [[nodiscard]] Way ChooseWay() const;
    [[nodiscard]] ExitCode MountBy(Way way, int ended);
    [[nodiscard]] ExitCode MountFileSystem();
    [[nodiscard]] ExitCode MountThroughLoop();
    [[nodiscard]] ExitCode MountThroughUdisks();
    [[nodiscard]] int UnmountFolder(bool lazily);
    [[nodiscard]] std::string PlainFile() const;
    [[nodiscard]] std::string Place() const;

    const ServiceOrder& order_;
    BlockDevice& device_;
    std::string name_;
    Way way_ = Way::File;
    std::string folder_; ///< what the user sees mounted
    std::string inner_;  ///< the folder that shows the FUSE file
    std::string loop_;
    std::uint64_t folderDevice_ = 0; ///< of what is mounted on the folder
    unsigned connection_ = 0;        ///< under which the system lists the FUSE connection
    Descriptor fuse_;
    std::unique_ptr<fuse::Server> server_;
    bool isInnerMounted_ = false;
    bool isMounted_ = false;
};

} // namespace quilla
