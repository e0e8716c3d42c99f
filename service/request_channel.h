#pragma once

#include "service/request_block.h"

#include <windows.h>

namespace quilla {

/// The sending side of the request channel: hands requests to the instance that owns the volume list, whether
/// that is this process or another one, and brings its replies back.
///
/// Every operation is a synchronous exchange: the request goes into a named mapping, WM_REQUEST is sent to
/// the target window, the reply is copied back over the caller's record. Nothing is reported: where the
/// server did nothing, the caller finds its own data again. A record that comes back from a mount or a
/// dismount tells the outcome through its DeviceHandle.
///
/// This class is a leaf: it knows the block's layout and a window handle, nothing of the application object.
class RequestChannel {
  public:
    /// The handle is looked at when a request is sent, so the window may still be unknown here.
    explicit RequestChannel(const HWND& target) : target_(target) {}
    RequestChannel(const RequestChannel&) = delete;
    RequestChannel& operator=(const RequestChannel&) = delete;

    /// Has the volume file and, unless the cipher is None, the key file of a record created. The digest is
    /// enciphering material: the caller wipes its own copy.
    void SendCreateVolumeFile(VolumeRecord& record, const PasswordDigest& digest);

    /// Finds Path in the server's list or adds it with KeyPath; the record becomes the list's.
    void SendQueryVolume(VolumeRecord& record);

    /// Deletes the files Path and KeyPath.
    void SendDeleteVolumeFiles(VolumeRecord& record);

    /// Mounts Path with Timeout, Flags and Key; the record becomes the list's (its Key zero) unless the
    /// volume was mounted already.
    void SendMountVolume(VolumeRecord& record);

    /// Dismounts Path; the record becomes the list's unless the volume was not mounted.
    void SendDismountVolume(VolumeRecord& record);

    /// Has every volume dismounted whose time-out has run out.
    void SendCheckTimeouts();

    /// Whether an exchange of this process is going on, or waits for those of others. Sent messages come
    /// through meanwhile: rows must not be removed, nor the window destroyed.
    [[nodiscard]] static bool IsSending();

  private:
    void SendRecord(RequestCode code, VolumeRecord& record, const PasswordDigest* digest = nullptr);

    const HWND& target_;
};

} // namespace quilla
