#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace quilla::iscsi {

/// Everybody who knows the secret is this user.
inline constexpr char kTargetUser[] = "quilla";

/// What an initiator must know to use a volume, each with a terminating zero, and what tells its unit from
/// others.
struct TargetKeys {
    /// "iqn.2026-11.local.quilla-tarn:secN-" and 32 hexadecimal digits.
    std::array<char, 80> name;
    /// Initiators take 12 to 16 characters; letters, digits and two signs that need no quoting anywhere.
    std::array<char, 16 + 1> secret;
    std::uint64_t identity;
};

/// Makes keys nobody can guess, for a device index of 0 to 9; false if the system has no random numbers.
[[nodiscard]] bool MakeTargetKeys(unsigned deviceIndex, TargetKeys& keys);

} // namespace quilla::iscsi
