#include "export/iscsi/target_keys.h"

#include "export/export_name.h"
#include "platform/random.h"
#include "platform/wipe.h"

#include <cstdio>
#include <cstring>
#include <span>

namespace quilla::iscsi {

bool MakeTargetKeys(unsigned deviceIndex, TargetKeys& keys) {
    constexpr char kSigns[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
    static_assert(sizeof(kSigns) == 64 + 1);
    Secret<ExportName> name;
    Secret<std::array<std::byte, 16>> random;
    if (!MakeExportName(deviceIndex, *name) || !FillFromSystemRandom(*random) ||
        !FillFromSystemRandom(std::as_writable_bytes(std::span(&keys.identity, 1))))
        return false;
    // Names of this kind are in lower case.
    std::snprintf(keys.name.data(), keys.name.size(), "iqn.2026-11.local.quilla-tarn:sec%s",
                  name->data() + std::strlen(kDevicePrefix));
    for (std::size_t i = 0; i < random->size(); ++i)
        keys.secret[i] = kSigns[std::to_integer<unsigned>((*random)[i]) % 64];
    keys.secret.back() = '\0';
    return true;
}

} // namespace quilla::iscsi
