#pragma once

#include "desktop/wake_up_timer.h"
#include "service/driver_control.h"
#include "service/mount_observer.h"
#include "service/request_block.h"
#include "store/volume_list.h"

#include <windows.h>

namespace quilla {

/// The one place where volumes are created, looked up, mounted, dismounted, deleted and timed out. Lives in
/// the main window, works on its list and runs on its thread.
class RequestServer {
  public:
    /// How often volumes are swept while any is mounted.
    static constexpr UINT kSweepMilliseconds = 15'000;

    RequestServer(BListView& list, DriverControl& driver, MountObserver& observer,
                  UINT sweepMilliseconds = kSweepMilliseconds);
    RequestServer(const RequestServer&) = delete;
    RequestServer& operator=(const RequestServer&) = delete;

    /// The handler of WM_REQUEST: performs the request in the shared mapping and leaves the reply there.
    /// Returns 0, or -1 for a mount of a mounted volume and a dismount of one that is not.
    LRESULT Serve();

    /// Dismounts the selected row's volume (the Dismount command, enabled for a mounted row only).
    void DismountSelected();

    /// Dismounts every mounted volume, from the last row to the first.
    void DismountAll();

    /// Dismounts every volume whose time-out ends within 15 seconds from now. While any volume is mounted
    /// this happens every 15 seconds by itself.
    void CheckTimeouts();

    /// Whether volumes are being worked on at this moment. Sent messages come through then, while a notice
    /// goes round: rows must not be removed, nor the window destroyed, nor a request be sent.
    [[nodiscard]] bool IsServing() const { return busy_ != 0; }

    /// The close rule: the main window may be destroyed only while no volume is mounted and no request is
    /// being served; otherwise it hides.
    [[nodiscard]] bool MayClose() const;

  private:
    class Work;

    LRESULT Perform(const RequestBlock& request, VolumeRecord& reply);
    LRESULT Query(const VolumeRecord& wanted, VolumeRecord& reply);
    LRESULT Mount(const VolumeRecord& wanted, VolumeRecord& reply);
    LRESULT DismountRequested(const VolumeRecord& wanted, VolumeRecord& reply);
    LRESULT Delete(const VolumeRecord& wanted);
    [[nodiscard]] ListedVolume* Find(const VolumeRecord& wanted);
    void Dismount(VolumeRecord& record, DismountReason reason);
    static void Sweep(void* server);

    BListView& list_;
    DriverControl& driver_;
    MountObserver& observer_;
    const UINT sweepMilliseconds_;
    WakeUpTimer sweep_{Sweep, this};
    unsigned busy_ = 0;
};

} // namespace quilla
