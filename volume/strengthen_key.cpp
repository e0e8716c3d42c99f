// The function that slows down guessing, on a key; handhelds are without it.

#include "platform/clock.h"
#include "platform/wipe.h"
#include "volume/key_strength.h"

#include <algorithm>

namespace quilla {

Argon2Result StrengthenKey(PasswordDigest& key, const KeyStrength& strength, Argon2Watch* watch) {
    Secret<PasswordDigest> wrapping;
    const Argon2Result result =
        Argon2id(*wrapping, {.password = key, .salt = strength.salt}, CostOf(strength), watch);
    key = *wrapping; // zeros, unless it is done
    return result;
}

std::optional<Argon2Cost> CostForMilliseconds(std::uint64_t milliseconds) {
    Argon2Cost cost = kDefaultArgon2Cost;
    KeyStrength strength{};
    PasswordDigest key{};
    strength.memory = cost.memory;
    strength.passes = cost.passes;
    strength.lanes = cost.lanes;
    const std::uint64_t begin = MonotonicMilliseconds();
    if (StrengthenKey(key, strength) != Argon2Result::Done)
        return std::nullopt;
    const std::uint64_t once = std::max<std::uint64_t>(MonotonicMilliseconds() - begin, 1);
    std::uint64_t passes = std::max<std::uint64_t>(cost.passes * milliseconds / once, 1);
    for (; passes > kGreatestArgon2Cost.passes && cost.memory < kGreatestArgon2Cost.memory; passes /= 2)
        cost.memory *= 2;
    cost.passes = static_cast<std::uint32_t>(std::min<std::uint64_t>(passes, kGreatestArgon2Cost.passes));
    return cost;
}

} // namespace quilla
