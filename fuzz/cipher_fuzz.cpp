// The cipher frame with keys, IVs and data of any length, compared with libgcrypt and nettle. Input: one byte
// for the cipher, one for the key's length, the key, 20 bytes of IV, the data.

#include "fuzz/require.h"
#include "tests/support/oracle.h"
#include "volume/cipher_frame.h"

#include <algorithm>
#include <cstdint>

namespace quilla {
namespace {

using fuzz::Require;
using test::Bytes;

/// Takes the next bytes off the input; fewer when it ends.
Bytes Take(std::span<const std::byte>& input, std::size_t count) {
    const auto taken = input.first(std::min(count, input.size()));
    input = input.subspan(taken.size());
    return Bytes(taken.begin(), taken.end());
}

void Check(CipherId cipher, const Bytes& key, const Bytes& iv, const Bytes& plain) {
    Cipher frame(key, cipher);
    Bytes data = plain;
    const std::uint32_t blockSize = BlockSizeOf(cipher);
    const bool suits = cipher == CipherId::Cast128 || (cipher == CipherId::Twofish && data.size() % 16 == 0);
    const bool expected = suits && iv.size() >= blockSize;
    Require(frame.Encrypt(data, iv) == expected, "outcome of enciphering");
    if (!expected) {
        Require(data == plain, "refused data left alone");
        return;
    }
    Require(data == test::OracleEncipher(static_cast<std::uint32_t>(cipher), key, iv, plain), "ciphertext");
    Require(frame.Decrypt(data, iv) && data == plain, "way back");
}

} // namespace
} // namespace quilla

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace quilla;
    auto input = std::as_bytes(std::span(data, size));
    if (input.size() < 2)
        return 0;
    constexpr CipherId kCiphers[] = {CipherId::Cast128, CipherId::Twofish, CipherId::None, CipherId{5}};
    const CipherId cipher = kCiphers[data[0] % 4];
    input = input.subspan(2);
    const Bytes key = Take(input, data[1]);
    const Bytes iv = Take(input, 20);
    Check(cipher, key, iv, Bytes(input.begin(), input.end()));
    return 0;
}
