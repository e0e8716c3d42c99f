// Runs of sectors, at even and odd addresses, through every kernel of this processor, compared with
// libgcrypt. Input: the first sector's number, the key, the length of the run, and bytes that are repeated,
// each time changed, until it is filled.

#include "fuzz/require.h"
#include "fuzz/sector_oracle.h"
#include "quilladriver/sector_cipher.h"
#include "quilladriver/sector_kernel.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

namespace quilla {
namespace {

using Bytes = std::vector<std::byte>;
using fuzz::Require;

constexpr std::size_t kLongestRun = 140; // two rounds of the widest kernel and a rest

struct [[gnu::packed]] Head {
    std::uint64_t first;
    DataKey key;
    std::uint8_t count;
};

Bytes Fill(std::size_t size, std::span<const std::byte> pattern) {
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] =
            (pattern.empty() ? std::byte{0} : pattern[i % pattern.size()]) ^ static_cast<std::byte>(i / 251);
    return bytes;
}

void Check(CipherId cipher, const Head& head, const Bytes& plain) {
    const DataKey key = head.key;
    Bytes expected = plain;
    test::OracleEncryptSectors(cipher, key, head.first, expected);
    for (const SectorKernel* const kernel : AllSectorKernels()) {
        if (kernel->cipher != cipher || !kernel->isSupported())
            continue;
        SectorCipher sectors;
        Require(sectors.SetUp(*kernel, key), kernel->name);
        Bytes room(plain.size() + 1);
        const std::span data = std::span(room).subspan(head.count % 2, plain.size());
        std::ranges::copy(plain, data.begin());
        sectors.Encrypt(head.first, data);
        Require(std::ranges::equal(data, expected), kernel->name);
        sectors.Decrypt(head.first, data);
        Require(std::ranges::equal(data, plain), kernel->name);
    }
}

} // namespace
} // namespace quilla

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace quilla;
    Head head{};
    std::memcpy(&head, data, std::min(size, sizeof(head)));
    const auto pattern = std::as_bytes(std::span(data, size)).subspan(std::min(size, sizeof(head)));
    const Bytes plain = Fill((1 + head.count % kLongestRun) * 512, pattern);
    Check(CipherId::Twofish, head, plain);
    Check(CipherId::Cast128, head, plain);
    return 0;
}
