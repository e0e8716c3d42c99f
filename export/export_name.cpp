#include "export/export_name.h"

#include "platform/random.h"

#include <string_view>

namespace quilla {

bool MakeExportName(unsigned deviceIndex, ExportName& name) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::array<std::byte, kExportNameRandomBytes> random{};
    if (!FillFromSystemRandom(random))
        return false;
    name.fill(0);
    std::size_t length = std::string_view(kDevicePrefix).copy(name.data(), name.size());
    name[length++] = kDigits[deviceIndex % kMaxDevices];
    name[length++] = '-';
    for (const std::byte value : random) {
        name[length++] = kDigits[std::to_integer<unsigned>(value) >> 4];
        name[length++] = kDigits[std::to_integer<unsigned>(value) & 15];
    }
    return true;
}

} // namespace quilla
