#pragma once

#include "export/nbd/server.h"
#include "linux/drive.h"
#include "linux/service.h"

#include <memory>
#include <string>

namespace quilla {

/// An NBD export on a socket in the user's runtime folder. Who can open the socket may use the volume, so the
/// export needs no name of its own.
class NbdDrive final : public Drive {
  public:
    NbdDrive(const ServiceOrder& order, BlockDevice& device);
    ~NbdDrive() override;

    [[nodiscard]] ExitCode Mount(int ended) override;
    [[nodiscard]] int Dismount() override;
    void Expire() override { Detach(); }
    void Detach() override;
    void Abandon() override;
    void Describe(MountState& state) const override;

  private:
    const std::string path_;
    RangeLock ranges_;
    nbd::Server server_;
    int ended_ = -1;
};

} // namespace quilla
