#pragma once

#include "export/stop_report.h"
#include "platform/clock.h"
#include "platform/win32/handle.h"
#include "service/mount_observer.h"

namespace quilla {

/// The part of a dismount that may take as long as a disk likes, on a thread of its own: completing what
/// clients have in flight, flushing and closing the data file. The record stays mounted, and must stay at its
/// address, until its owner has seen the end of this and unloaded the driver.
class Detachment {
  public:
    /// Starts at once. When it is over WM_DETACHED is posted to the window.
    Detachment(VolumeRecord& record, DismountReason reason, HWND window);
    /// Waits for the end.
    ~Detachment();
    Detachment(const Detachment&) = delete;
    Detachment& operator=(const Detachment&) = delete;

    [[nodiscard]] bool IsOver() const { return WaitForSingleObject(over_.Get(), 0) == WAIT_OBJECT_0; }

    /// Waits for the end, at most until so many milliseconds have passed since the start. Sent messages are
    /// served and windows painted meanwhile.
    void Await(ULONGLONG patience) const;

    [[nodiscard]] VolumeRecord& Record() const { return record_; }
    [[nodiscard]] DismountReason Reason() const { return reason_; }

    /// What became of the device's clients, once it is over.
    [[nodiscard]] const StopReport& Report() const { return report_; }

    bool isFinished = false; ///< whether its owner has completed the dismount

  private:
    static DWORD WINAPI Run(void* detachment);
    void Detach();

    VolumeRecord& record_;
    const DismountReason reason_;
    const HWND window_;
    const ULONGLONG begin_ = MonotonicMilliseconds();
    StopReport report_;
    UniqueEvent over_{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    UniqueThread thread_;
};

} // namespace quilla
