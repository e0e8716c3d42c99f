#include "quilladriver/twofish_keys.h"

#include "platform/wipe.h"

#include <cstring>

namespace quilla {

void ExpandTwofishKeys(TwofishKeyPair& keys, const DataKey& key) {
    constexpr char kLabels[] = "QuillaTweakKey 1QuillaTweakKey 2";
    static_assert(sizeof(kLabels) == kDataKeySize + 1);

    static_cast<void>(ExpandTwofishKey(keys.data, key)); // 32 bytes are never too many
    Secret<TwofishSchedule> schedule;
    BuildTwofishSchedule(*schedule, keys.data);
    Secret<DataKey> tweakKey;
    std::memcpy(tweakKey->data(), kLabels, kDataKeySize);
    for (std::size_t i = 0; i < kDataKeySize; i += kTwofishBlockSize)
        TwofishEncryptBlock(*schedule, tweakKey->data() + i, tweakKey->data() + i);
    static_cast<void>(ExpandTwofishKey(keys.tweak, *tweakKey));
}

void BuildTwofishSchedules(void* schedules, const DataKey& key) {
    auto& pair = *static_cast<TwofishSchedulePair*>(schedules);
    Secret<TwofishKeyPair> keys;
    ExpandTwofishKeys(*keys, key);
    BuildTwofishSchedule(pair.data, keys->data);
    BuildTwofishSchedule(pair.tweak, keys->tweak);
}

} // namespace quilla
