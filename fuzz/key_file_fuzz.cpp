// The key file reader and rewriter over arbitrary bytes, compared with a slow model that works on the bytes
// in memory. Whatever the file holds: both agree, a refused file stays as it is, and a rewrite changes the
// payload and nothing else.

#include "fuzz/memory_file.h"
#include "platform/byte_order.h"
#include "volume/key_replacement.h"
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

/// The file with another key block, and with another strength or none; nothing for one that is cut.
std::optional<Bytes> CopyModel(const Bytes& input, const ChunkHeader& keyHeader, const KeyBlock& block,
                               const KeyStrength* strength) {
    Bytes output;
    const auto append = [&](const void* bytes, std::size_t size) {
        const auto* const first = static_cast<const std::byte*>(bytes);
        output.insert(output.end(), first, first + size);
    };
    if (input.size() < 16)
        return std::nullopt;
    append(input.data(), 16);
    bool isExchanged = false;
    for (std::size_t position = 16; position < input.size();) {
        const std::size_t rest = input.size() - position;
        if (rest < 16 || LoadLittle<std::uint64_t>(&input[position + 8]) > rest - 16)
            return std::nullopt;
        const std::size_t size = 16 + LoadLittle<std::uint32_t>(&input[position + 8]);
        const bool isKey = !isExchanged && std::memcmp(&input[position], &keyHeader, 16) == 0;
        if (isKey) {
            append(&keyHeader, 16);
            append(&block, sizeof(block));
        } else if (NumberAt(input, position) != 0x51544B44) {
            append(&input[position], size);
        }
        isExchanged |= isKey;
        position += size;
    }
    if (!isExchanged)
        return std::nullopt;
    if (strength != nullptr) {
        append(&kStrengthHeader, 16);
        append(strength, sizeof(*strength));
    }
    return output;
}

/// A change that adds, exchanges or removes the strength keeps every other chunk.
void CheckCopy(const Bytes& input, const ChunkHeader& keyHeader) {
    KeyBlock block;
    std::memset(&block, 0x66, sizeof(block));
    KeyStrength fresh;
    std::memset(&fresh, 0x33, sizeof(fresh));
    const KeyStrength* const strengths[] = {nullptr, &fresh};
    for (const KeyStrength* const strength : strengths) {
        const MemoryFile from(input);
        const MemoryFile to({});
        KeyFileStatus status = KeyFileStatus::CannotOpen;
        {
            const File source =
                File::Open(from.Path(), FileAccess::ReadWrite, FileSharing::None, FileCreation::OpenExisting);
            const File copy =
                File::Open(to.Path(), FileAccess::Write, FileSharing::None, FileCreation::OpenExisting);
            status = CopyKeyFile(source, copy, keyHeader, block, strength);
        }
        const std::optional<Bytes> expected = CopyModel(input, keyHeader, block, strength);
        Require((status == KeyFileStatus::Done) == expected.has_value(), "outcome of copying");
        Require(expected || status == KeyFileStatus::UnknownFormat, "why nothing is copied");
        Require(!expected || to.Content() == *expected, "copy with another key block");
        Require(from.Content() == input, "copying leaves the old file");
    }
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
    CheckCopy(input, KeyBlockHeader(CipherId::Cast128));
    CheckCopy(input, KeyBlockHeader(CipherId::Twofish));
    return 0;
}
