#pragma once

#include "volume/argon2.h"
#include "volume/key_file.h"

#include <optional>

/// The option that slows down guessing: a chunk of the key file with a salt and costs. With it, not the
/// password key enciphers the key block but the wrapping key that Argon2id makes of it
/// (docs/key-file-format.md).
namespace quilla {

/// The most that this program is ready to do for a key file, which may be a stranger's.
inline constexpr Argon2Cost kGreatestArgon2Cost = {.memory = 1024 * 1024, .passes = 64, .lanes = 16};

/// How a new volume's key is made.
[[nodiscard]] bool MakeKeyStrength(KeyStrength& strength, const Argon2Cost& cost = kDefaultArgon2Cost);

/// Whether a chunk from a stranger's file asks for no more than this program is ready to do: 8 MiB to 1 GiB,
/// 1 to 64 passes, 1 to 16 lanes, and the one algorithm there is.
[[nodiscard]] bool IsAcceptable(const KeyStrength& strength);

[[nodiscard]] Argon2Cost CostOf(const KeyStrength& strength);

/// Turns a password key into the wrapping key, in place. When that fails the key is wiped. Takes a moment:
/// see Argon2Watch.
[[nodiscard]] Argon2Result StrengthenKey(PasswordDigest& key, const KeyStrength& strength,
                                         Argon2Watch* watch = nullptr);

/// The cost whose function takes about so long on this machine: more passes first, then more memory.
[[nodiscard]] std::optional<Argon2Cost> CostForMilliseconds(std::uint64_t milliseconds);

/// What the chunk of a key file says; nothing when the file has none. A chunk that is there and is not
/// understood, or asks for more than is acceptable, is an UnknownFormat.
[[nodiscard]] KeyFileStatus LoadKeyStrength(const PathUnit* path, std::optional<KeyStrength>& strength);

/// The same together with the key block, from one open file, so that the two belong together.
[[nodiscard]] KeyFileStatus LoadSealedKey(const PathUnit* path, CipherId cipher, KeyBlock& block,
                                          std::optional<KeyStrength>& strength);

/// Adds the chunk to a file that has none. A failure may leave a piece of it.
[[nodiscard]] KeyFileStatus AppendKeyStrength(const PathUnit* path, const KeyStrength& strength);

/// Writes a sealed key block, and the strength that it was sealed with or none. Where both the file and the
/// change do without, the block is written in place; else a new file takes the old one's place, in which
/// every other byte is kept. A process killed meanwhile leaves one or the other. Refused while another has
/// the file open.
[[nodiscard]] KeyFileStatus ChangeKeyBlock(const PathUnit* path, CipherId cipher, const KeyBlock& block,
                                           const KeyStrength* strength);

} // namespace quilla
