#pragma once

#include "export/stop_report.h"
#include "volume/volume_record.h"

namespace quilla {

/// Why a volume was dismounted.
enum class DismountReason : unsigned char { User, Timeout };

/// Is told of what the user should hear about a volume without having asked. Calls come on the main window's
/// thread, in the middle of a request: an implementation shows a notice and returns at once.
class MountObserver {
  public:
    MountObserver() = default;
    MountObserver(const MountObserver&) = delete;
    MountObserver& operator=(const MountObserver&) = delete;

    /// A volume has been mounted; its record stays at its address until it is not any more.
    virtual void OnVolumeMounted(const VolumeRecord& /*record*/) {}

    /// A volume is not mounted any more; its export ended as reported.
    virtual void OnVolumeDismounted(const VolumeRecord& record, DismountReason reason,
                                    const StopReport& report) = 0;

  protected:
    ~MountObserver() = default;
};

} // namespace quilla
