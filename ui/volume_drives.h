#pragma once

#include "platform/device_name.h"
#include "platform/win32/handle.h"
#include "volume/volume_record.h"

#include <array>
#include <cstdint>
#include <memory>
#include <windows.h>

namespace quilla {

enum class DriveStep : unsigned char { Attach, Detach };

/// What became of a step.
enum class DriveResult : unsigned char {
    Done,
    Refused,  ///< the text says why
    Declined, ///< by the user, when the system asked for an administrator's consent
    NoWay,    ///< the system lacks what it takes
};

/// One run of a script that attaches or detaches a volume. It goes on by itself, on a thread that waits for
/// the script, and lasts as long as the system and its user like.
struct DriveRun {
    static constexpr std::size_t kTextUnits = 400;

    std::uint32_t device = 0; ///< handle of the mounted device
    DriveStep step = DriveStep::Attach;
    bool isAskedFor = false; ///< by the user at this moment, not by a setting
    bool dismounts = false;  ///< once the volume is detached
    DriveResult result = DriveResult::NoWay;
    wchar_t text[kTextUnits] = {}; ///< letters of the drive, or why not

    HWND window = nullptr;
    PathText shell = {};
    wchar_t parameters[3 * kPathUnits] = {};
    /// Where the script writes what it has done. Held open, so that nobody can put another file in its place
    /// for a script with so many rights to write to.
    UniqueFile answer;
    UniqueEvent over{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    UniqueThread thread;
};

/// The drives that the system makes of mounted volumes by its iSCSI initiator, or an NBD driver if one is
/// installed. AttachDrive.ps1 and DetachDrive.ps1 do it, beside the program, with an administrator's rights,
/// for which the system asks the user. Used on the window's thread. There are none on a handheld.
class VolumeDrives {
  public:
    VolumeDrives() = default;
    /// Runs that are not over are left to the end of the process.
    ~VolumeDrives();
    VolumeDrives(const VolumeDrives&) = delete;
    VolumeDrives& operator=(const VolumeDrives&) = delete;

    /// Whether the system has what it takes; without it the user is not asked for his consent.
    [[nodiscard]] static bool CanAttach();

    /// Starts a step for a mounted volume. When it is over the window's thread is woken up. False if one is
    /// under way already, or the system refuses.
    bool Start(HWND window, const VolumeRecord& record, DriveStep step, bool isAskedFor, bool dismounts);

    /// Whether a step for a device is under way.
    [[nodiscard]] bool IsBusy(std::uint32_t device) const;

    /// A run that is over; null if there is none.
    [[nodiscard]] std::unique_ptr<DriveRun> TakeOver();

    /// Whether volumes are to be attached when they are mounted, which is kept beside the window's place in
    /// the registry.
    [[nodiscard]] static bool AttachesAfterMounting();
    static void SetAttachesAfterMounting(bool attaches);

  private:
    std::array<std::unique_ptr<DriveRun>, kMaxDevices> runs_;
};

} // namespace quilla
