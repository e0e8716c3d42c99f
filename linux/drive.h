#pragma once

#include "linux/control.h"
#include "linux/message.h"
#include "platform/block_device.h"

#include <memory>

namespace quilla {

struct ServiceOrder;

/// How a block device reaches its user, and how it is taken away again.
class Drive {
  public:
    Drive() = default;
    virtual ~Drive() = default;
    Drive(const Drive&) = delete;
    Drive& operator=(const Drive&) = delete;

    /// Serves and mounts; tells what went wrong and then leaves nothing behind. `ended` (an eventfd) is
    /// signalled when the drive has gone, whoever ended it.
    [[nodiscard]] virtual ExitCode Mount(int ended) = 0;

    /// Takes away what the user sees; 0, or the error, EBUSY while somebody uses it. The drive goes when all
    /// that it holds is written.
    [[nodiscard]] virtual int Dismount() = 0;

    /// The same because nobody has used it for its time-out.
    virtual void Expire() { static_cast<void>(Dismount()); }

    /// Takes what is in use away from new users, after writing what it holds; the drive goes with the last
    /// user.
    virtual void Detach() = 0;

    /// Ends everything as far as that is possible and joins the threads.
    virtual void Abandon() = 0;

    /// Fills in where the drive is found and who uses it.
    virtual void Describe(MountState& state) const = 0;
};

/// The drive that an order asks for; null without memory. Order and device must outlive it.
[[nodiscard]] std::unique_ptr<Drive> MakeDrive(const ServiceOrder& order, BlockDevice& device);

} // namespace quilla
