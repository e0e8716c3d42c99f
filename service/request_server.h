#pragma once

#include "desktop/wake_up_timer.h"
#include "platform/device_name.h"
#include "service/detachment.h"
#include "service/driver_control.h"
#include "service/mount_observer.h"
#include "service/request_block.h"
#include "store/volume_list.h"

#include <array>
#include <memory>
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

    /// How long a dismount may take before the program goes on and its row says so; and how long the sender
    /// of a request waits, who is told afterwards that the volume is still mounted. A disk that hangs keeps
    /// neither the window nor other senders.
    static constexpr ULONGLONG kWindowPatience = 200;
    static constexpr ULONGLONG kSenderPatience = 30'000;

    /// Dismounts the selected row's volume (the Dismount command, enabled for a mounted row only).
    void DismountSelected();

    /// Dismounts a mounted volume of the list.
    void Dismount(VolumeRecord& record);

    /// Dismounts every mounted volume, from the last row to the first. Patience is in milliseconds.
    void DismountAll(ULONGLONG patience = kWindowPatience);

    /// The handler of WM_DETACHED: completes the dismounts whose disks are done.
    void FinishDismounts();

    /// Dismounts every volume whose time-out ends within 15 seconds from now. While any volume is mounted
    /// this happens every 15 seconds by itself.
    void CheckTimeouts(ULONGLONG patience = kWindowPatience);

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
    [[nodiscard]] bool IsDismounting(const VolumeRecord& record) const;
    void BeginDismount(VolumeRecord& record, DismountReason reason);
    void AwaitDismounts(ULONGLONG patience, const VolumeRecord* awaited = nullptr);
    void FinishDismount(Detachment& detachment);
    void MarkDismounting(VolumeRecord& record, bool isDismounting);
    static void Sweep(void* server);

    BListView& list_;
    DriverControl& driver_;
    MountObserver& observer_;
    const UINT sweepMilliseconds_;
    WakeUpTimer sweep_{Sweep, this};
    std::array<std::unique_ptr<Detachment>, kMaxDevices> detachments_;
    unsigned awaiting_ = 0;
    unsigned busy_ = 0;
};

} // namespace quilla
