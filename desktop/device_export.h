#pragma once

#include "export/iscsi/target.h"
#include "export/nbd/server.h"
#include "platform/block_device.h"
#include "platform/device_name.h"
#include "platform/win32/handle.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>

namespace quilla {

/// A device offered to block device clients of this machine: an NBD server under a name that only the user
/// can know, an iSCSI target with a secret, and files with what the user's own programs need for either:
/// "SECn.uri" holds the URI of the export, "SECn.iscsi" lines of "key=value" (address, port, target, user,
/// secret).
class DeviceExport {
  public:
    /// Units of a URI, terminating zero included.
    static constexpr std::size_t kUriSize = 96;

    DeviceExport() = default;
    ~DeviceExport() { Stop(); }
    DeviceExport(const DeviceExport&) = delete;
    DeviceExport& operator=(const DeviceExport&) = delete;

    /// Starts to serve the device, which must outlive the export, under the name "SECn-" + 32 hexadecimal
    /// digits of the system's generator. False if there are no random bytes or no port. A file that
    /// cannot be written, or a target that cannot be started, keeps nobody from using the export.
    [[nodiscard]] bool Start(BlockDevice& device, unsigned index);

    /// Completes what is in flight, flushes, disconnects everybody and removes the files. May run on any
    /// one thread while others ask for URI and clients. A second call does nothing.
    StopReport Stop();

    /// Removes the files that a process left which was ended with volumes mounted. To be called while
    /// nothing is exported; what the user has mounted in another session stays.
    static void RemoveLeftovers();

    /// Whether the user has a device of this number in another session, which has its files, too.
    [[nodiscard]] static bool IsElsewhere(unsigned index);

    /// "nbd://127.0.0.1:PORT/SECn-…"; empty while not served.
    [[nodiscard]] const char* Uri() const { return isServed_ ? uri_.data() : ""; }

    /// The ports that clients connect to; 0 for a target that could not be started.
    [[nodiscard]] std::array<std::uint16_t, 2> Ports() const {
        return {server_->Port(), target_ ? target_->Port() : std::uint16_t{0}};
    }

    [[nodiscard]] unsigned ConnectedClients() const {
        if (!isServed_)
            return 0;
        return server_->ConnectedClients() + (target_ ? target_->ConnectedClients() : 0);
    }

  private:
    void StartTarget(BlockDevice& device);

    RangeLock ranges_;
    std::unique_ptr<nbd::Server> server_;
    std::unique_ptr<iscsi::Target> target_;
    std::array<char, kUriSize> uri_{};
    UniqueFile uriFile_;
    UniqueFile keysFile_;
    unsigned index_ = 0;
    std::atomic<bool> isServed_ = false;
};

} // namespace quilla
