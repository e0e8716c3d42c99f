#include "quilladriver/cast128_keys.h"

#include <span>

namespace quilla {

void BuildCastKeys(CastKeyPair& keys, const DataKey& key) {
    const std::span<const std::byte, kDataKeySize> bytes(key);
    BuildCastSchedule(keys.data, bytes.first<kCastKeySize>());
    BuildCastSchedule(keys.iv, bytes.last<kCastKeySize>());
}

} // namespace quilla
