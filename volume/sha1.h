#pragma once

#include "platform/text.h"
#include "volume/password_digest.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <type_traits>

namespace quilla {

/// State of an incremental SHA-1 (FIPS 180-1). Holds traces of what was hashed: wipe it after hashing
/// secrets.
struct Sha1State {
    std::uint32_t chain[5];
    std::uint32_t bitCountLow;
    std::uint32_t bitCountHigh;
    std::byte block[64];
    std::uint32_t finished;
};
static_assert(std::is_trivially_copyable_v<Sha1State> && sizeof(Sha1State) == 96);

/// Runs the compression function once: mixes sixteen message words, already in the processor's order, into
/// the five chaining words.
void Sha1Compress(std::uint32_t (&chain)[5], const std::uint32_t (&words)[16]);

void Sha1Init(Sha1State& state);

/// Hashes more bytes; ignored once the state is final.
void Sha1Update(Sha1State& state, std::span<const std::byte> bytes);

/// Pads and ends the message. Afterwards the first 20 bytes of the state are the chaining words in
/// little-endian order.
void Sha1Final(Sha1State& state);

/// Turns a password into the key of its key block: the SHA-1 chaining words of the bytes, each stored
/// little-endian. No salt and no iterations: the key file format has room for neither.
void PasswordKey(PasswordDigest& key, std::span<const std::byte> password);

/// The same for text, whose UTF-16LE units are hashed without a terminating zero.
void PasswordKey(PasswordDigest& key, TextView password);

} // namespace quilla
