#pragma once

#include "driver/driver_control.h"
#include "driver/mount_observer.h"
#include "driver/request_block.h"
#include "store/volume_list.h"

#include <windows.h>

namespace quilla {

/// The one place where volumes are created, looked up, mounted, dismounted, deleted and timed out. Lives in
/// the main window, works on its list and runs on its thread.
class RequestServer {
  public:
    RequestServer(BListView& list, DriverControl& driver, MountObserver& observer);
    ~RequestServer();
    RequestServer(const RequestServer&) = delete;
    RequestServer& operator=(const RequestServer&) = delete;

    /// The handler of WM_REQUEST: performs the request in the shared mapping and leaves the reply there.
    /// Returns 0, or -1 for a mount of a mounted volume and a dismount of one that is not.
    LRESULT Serve();

    /// Dismounts the selected row's volume (the Dismount command, enabled for a mounted row only).
    void DismountSelected();

    /// Dismounts every mounted volume, from the last row to the first.
    void DismountAll();

    /// Dismounts every volume whose time-out ends within 15 seconds from now.
    void CheckTimeouts();

  private:
    LRESULT Perform(RequestBlock& request);
    LRESULT Mount(RequestBlock& request);
    LRESULT DismountRequested(RequestBlock& request);
    void Dismount(int row, DismountReason reason);

    BListView& list_;
    DriverControl& driver_;
    MountObserver& observer_;
};

} // namespace quilla
