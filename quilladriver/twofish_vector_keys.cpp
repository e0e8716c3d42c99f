#include "quilladriver/twofish_vector_keys.h"

#include "platform/wipe.h"
#include "quilladriver/twofish_keys.h"

#include <cstring>

namespace quilla {

namespace {

/// x / 2 in the field of 0x169.
unsigned Halve(unsigned x) {
    return x >> 1 ^ ((0U - (x & 1)) & (0x169 >> 1));
}

void Expand(TwofishVectorKey& to, const TwofishKey& from) {
    std::memcpy(to.subkeys, from.subkeys, sizeof(to.subkeys));
    Secret<TwofishSboxes> sboxes;
    BuildTwofishSboxes(*sboxes, from);
    for (unsigned i = 0; i < 4; ++i)
        for (unsigned x = 0; x < 256; ++x)
            to.quarterSboxes[i][x] = static_cast<std::uint8_t>(Halve(Halve(sboxes->box[i][x])));
}

} // namespace

void BuildTwofishVectorKeys(TwofishVectorKeyPair& keys, const DataKey& key) {
    Secret<TwofishKeyPair> expanded;
    ExpandTwofishKeys(*expanded, key);
    Expand(keys.data, expanded->data);
    Expand(keys.tweak, expanded->tweak);
}

} // namespace quilla
