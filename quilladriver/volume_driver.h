#pragma once

#include "platform/file.h"
#include "platform/text.h"
#include "quilladriver/driver_status.h"
#include "quilladriver/request_gate.h"
#include "quilladriver/volume_device.h"
#include "volume/volume_record.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace quilla {

/// One mounted volume behind the platform's disk control codes. Control may be called by several threads at
/// once; a code that detaches the volume lets the others finish first.
class VolumeDriver {
  public:
    explicit VolumeDriver(ActivityClock clock) : device_(clock) {}
    ~VolumeDriver() { Detach(); }
    VolumeDriver(const VolumeDriver&) = delete;
    VolumeDriver& operator=(const VolumeDriver&) = delete;

    /// Starts to serve the volume of a record, whose open data file is handed over; sets ActivityTime. False
    /// when the volume cannot be served.
    [[nodiscard]] bool Attach(File file, VolumeRecord& record);

    /// Carries out one control code. Records that come in may stand at any address; `returned` receives the
    /// number of bytes put out.
    DriverStatus Control(std::uint32_t code, std::span<std::byte> in, std::span<std::byte> out,
                         std::uint32_t& returned);

  private:
    struct Request {
        std::span<std::byte> in;
        std::span<std::byte> out;
        std::uint32_t* returned;
    };
    using Handler = DriverStatus (VolumeDriver::*)(const Request&);
    struct ControlCode;
    static const ControlCode kControlCodes[];

    DriverStatus GetInfo(const Request& request);
    DriverStatus GetLength(const Request& request);
    DriverStatus GetName(const Request& request);
    DriverStatus AcceptName(const Request& request);
    DriverStatus ReadSectors(const Request& request);
    DriverStatus WriteSectors(const Request& request);
    DriverStatus TransferBytes(const Request& request);
    DriverStatus FlushCache(const Request& request);
    DriverStatus QueryActivity(const Request& request);
    DriverStatus UpdateSettings(const Request& request);
    void Detach();

    VolumeDevice device_;
    RequestGate gate_;
    PathText name_{}; ///< what the volume is called where folders show it
};

} // namespace quilla
