#include "export/export_name.h"

#include "platform/random.h"

#include <cstring>

namespace quilla {

bool MakeExportName(unsigned deviceIndex, ExportName& name) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::array<std::byte, kExportNameRandomBytes> random{};
    if (!FillFromSystemRandom(random))
        return false;
    name = {'S', 'E', 'C', kDigits[deviceIndex % 10], '-'};
    std::size_t length = std::strlen(name.data());
    for (const std::byte value : random) {
        name[length++] = kDigits[std::to_integer<unsigned>(value) >> 4];
        name[length++] = kDigits[std::to_integer<unsigned>(value) & 15];
    }
    return true;
}

} // namespace quilla
