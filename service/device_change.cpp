#include "service/device_change.h"

#include "desktop/ce_services.h"
#include "platform/text.h"
#include "platform/win32/format_text.h"

#include <cstddef>
#include <cstdint>

namespace quilla {

namespace {

/// A notice that a port came or went (DEV_BROADCAST_PORT_W). Receivers find the name by its terminating zero:
/// the stated size is the one of a six-unit name with its padding, whatever the name is.
struct PortNotice {
    std::uint32_t size;
    std::uint32_t deviceType;
    std::uint32_t reserved;
    wchar_t name[16];
};
static_assert(offsetof(PortNotice, name) == 12);

constexpr std::uint32_t kPortNoticeSize = 26;
constexpr std::uint32_t kPortDevice = 3; // DBT_DEVTYP_PORT

} // namespace

void BroadcastDeviceChange(const wchar_t* deviceName, unsigned event, const wchar_t* verb) {
    PortNotice notice{.size = kPortNoticeSize, .deviceType = kPortDevice, .reserved = 0, .name = {}};
    CopyText(notice.name, deviceName);
    static_cast<void>(
        ce::SendNotifyMessageW(HWND_BROADCAST, WM_DEVICECHANGE, event, reinterpret_cast<LPARAM>(&notice)));
    wchar_t tail[32];
    if (verb != nullptr && FormatText(tail, L"%ls %ls", verb, deviceName))
        static_cast<void>(ce::CeEventHasOccurred(ce::NOTIFICATION_EVENT_DEVICE_CHANGE, tail));
}

} // namespace quilla
