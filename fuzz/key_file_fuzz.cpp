// The key file reader and rewriter over arbitrary bytes, compared with a slow model that works on the bytes
// in memory. Whatever the file holds: both agree, a refused file stays as it is, and a rewrite changes the
// payload and nothing else.

#include "fuzz/memory_file.h"
#include "platform/byte_order.h"
#include "volume/key_strength.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <vector>

namespace quilla {
namespace {

using Bytes = std::vector<std::byte>;
using fuzz::MemoryFile;
using fuzz::Require;

/// Where the payload of the wanted chunk begins. Inputs are far too short for the limit on chunks to matter.
std::optional<std::size_t> FindModel(const Bytes& file, const ChunkHeader& wanted) {
    for (std::size_t position = 16; position + 16 <= file.size();) {
        const std::byte* const header = &file[position];
        position += 16;
        if (std::memcmp(header, &wanted, 16) == 0)
            return position;
        const auto length = LoadLittle<std::uint64_t>(header + 8);
        if (length > file.size() - position)
            break;
        position += static_cast<std::size_t>(length);
    }
    return std::nullopt;
}

void CheckChunk(const Bytes& input, const ChunkHeader& wanted) {
    const std::optional<std::size_t> place = FindModel(input, wanted);
    const std::size_t size = wanted.lengthLow;
    const MemoryFile file(input);
    Bytes payload(size);
    const bool whole = place && input.size() - *place >= size;
    const KeyFileStatus read = LoadChunk(file.Path(), wanted, payload);
    Require(read == (whole ? KeyFileStatus::Done : KeyFileStatus::CannotRead), "outcome of reading");
    if (whole)
        Require(std::memcmp(payload.data(), &input[*place], size) == 0, "payload read");
    Require(file.Content() == input, "reading changes nothing");

    const Bytes fresh(size, std::byte{0x77});
    const KeyFileStatus written = StoreChunk(file.Path(), wanted, fresh);
    Require(written == (place ? KeyFileStatus::Done : KeyFileStatus::CannotRead), "outcome of rewriting");
    Bytes expected = input;
    if (place) {
        expected.resize(std::max(expected.size(), *place + size));
        std::memcpy(&expected[*place], fresh.data(), size);
    }
    Require(file.Content() == expected, "rewriting changes the payload only");
}

std::uint32_t NumberAt(const Bytes& input, std::size_t offset) {
    return offset + 4 <= input.size() ? LoadLittle<std::uint32_t>(&input[offset]) : 0xFFFFFFFF;
}

void CheckSummary(const Bytes& input) {
    const MemoryFile file(input);
    VolumeRecord record{};
    record.Cipher = CipherId::Twofish;
    const bool known = NumberAt(input, 0) == 0 && NumberAt(input, 16) == 1 && NumberAt(input, 56) == 2 &&
                       NumberAt(input, 60) < kCipherIdCount;
    Require(LoadSummary(file.Path(), record) == (known ? KeyFileStatus::Done : KeyFileStatus::UnknownFormat),
            "outcome of the summary");
    if (known) {
        Require(static_cast<std::uint32_t>(record.Cipher) == NumberAt(input, 60), "cipher of the summary");
        Require(record.Timeout == LoadLittle<std::uint64_t>(&input[40]), "time-out of the summary");
    } else {
        Require(record.Cipher == CipherId::Twofish, "cipher left alone");
    }
    Require(file.Content() == input, "the summary changes nothing");
}

/// The chunk that slows down guessing: absent, within the limits, or unknown.
void CheckStrength(const Bytes& input) {
    bool isKnown = true;
    std::optional<KeyStrength> expected;
    for (std::size_t position = 16; position + 4 <= input.size();) {
        const std::size_t rest = input.size() - position;
        if (NumberAt(input, position) == 0x51544B44) {
            KeyStrength strength{};
            isKnown = rest >= 64 && NumberAt(input, position + 4) == 0 &&
                      NumberAt(input, position + 8) == 48 && NumberAt(input, position + 12) == 0;
            if (isKnown)
                std::memcpy(&strength, &input[position + 16], sizeof(strength));
            isKnown = isKnown && strength.memory >= 8192 && strength.memory <= 1048576 &&
                      strength.passes >= 1 && strength.passes <= 64 && strength.lanes >= 1 &&
                      strength.lanes <= 16 && strength.algorithm == 1;
            if (isKnown)
                expected = strength;
            break;
        }
        const std::uint64_t length = rest >= 16 ? LoadLittle<std::uint64_t>(&input[position + 8]) : rest;
        if (rest < 16 || length > rest - 16)
            break;
        position += 16 + static_cast<std::size_t>(length);
    }
    const MemoryFile file(input);
    std::optional<KeyStrength> found;
    const KeyFileStatus status = LoadKeyStrength(file.Path(), found);
    Require(status == (isKnown ? KeyFileStatus::Done : KeyFileStatus::UnknownFormat), "outcome of strength");
    Require(found.has_value() == expected.has_value() &&
                (!found || std::memcmp(&*found, &*expected, sizeof(*found)) == 0),
            "strength read");
    Require(file.Content() == input, "reading strength changes nothing");
}

} // namespace
} // namespace quilla

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace quilla;
    const auto bytes = std::as_bytes(std::span(data, size));
    const Bytes input(bytes.begin(), bytes.end());
    CheckSummary(input);
    CheckStrength(input);
    CheckChunk(input, kSettingsHeader);
    CheckChunk(input, KeyBlockHeader(CipherId::Cast128));
    CheckChunk(input, KeyBlockHeader(CipherId::Twofish));
    return 0;
}
