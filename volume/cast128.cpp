#include "volume/cast128.h"

#include "platform/byte_order.h"
#include "platform/wipe.h"

#include <cstring>

namespace quilla {

namespace {

/// The schedule works on two groups of sixteen bytes, x and z of RFC 2144, section 2.4, that are derived from
/// each other in turn; byte 0 is the top byte of the first word.
using Group = std::uint8_t[16];

/// One word of a new group: a word of the old group XOR five S-boxes. The first four, S5 to S8, look up bytes
/// of the new group (of the old one in the first word, which has nothing else), the fifth a byte of the old.
struct Step {
    std::uint8_t word; ///< of the old group, as the number of its first byte
    std::uint8_t lookups[4];
    std::uint8_t extra; ///< byte of the old group
    std::uint8_t extraBox;
};

/// z from x.
constexpr Step kForward[4] = {{0x0, {0xD, 0xF, 0xC, 0xE}, 0x8, 7},
                              {0x8, {0x0, 0x2, 0x1, 0x3}, 0xA, 8},
                              {0xC, {0x7, 0x6, 0x5, 0x4}, 0x9, 5},
                              {0x4, {0xA, 0x9, 0xB, 0x8}, 0xB, 6}};
/// x from z.
constexpr Step kBackward[4] = {{0x8, {0x5, 0x7, 0x4, 0x6}, 0x0, 7},
                               {0x0, {0x0, 0x2, 0x1, 0x3}, 0x2, 8},
                               {0x4, {0x7, 0x6, 0x5, 0x4}, 0x1, 5},
                               {0xC, {0xA, 0x9, 0xB, 0x8}, 0x3, 6}};

/// Bytes of the newest group that the S-boxes S5 to S8 and, as the fifth, S5, S6, S7 or S8 in turn look up
/// for each key word; the same for K1 to K16 and K17 to K32.
constexpr std::uint8_t kKeyLookups[16][5] = {
    {0x8, 0x9, 0x7, 0x6, 0x2}, {0xA, 0xB, 0x5, 0x4, 0x6}, {0xC, 0xD, 0x3, 0x2, 0x9},
    {0xE, 0xF, 0x1, 0x0, 0xC}, {0x3, 0x2, 0xC, 0xD, 0x8}, {0x1, 0x0, 0xE, 0xF, 0xD},
    {0x7, 0x6, 0x8, 0x9, 0x3}, {0x5, 0x4, 0xA, 0xB, 0x7}, {0x3, 0x2, 0xC, 0xD, 0x9},
    {0x1, 0x0, 0xE, 0xF, 0xC}, {0x7, 0x6, 0x8, 0x9, 0x2}, {0x5, 0x4, 0xA, 0xB, 0x6},
    {0x8, 0x9, 0x7, 0x6, 0x3}, {0xA, 0xB, 0x5, 0x4, 0x7}, {0xC, 0xD, 0x3, 0x2, 0x8},
    {0xE, 0xF, 0x1, 0x0, 0xD}};

/// S5 to S8, by their numbers.
std::uint32_t Look(unsigned box, std::uint8_t x) {
    return kCastSboxes[box - 1][x];
}

std::uint32_t LookFour(const Group& group, const std::uint8_t* places) {
    return Look(5, group[places[0]]) ^ Look(6, group[places[1]]) ^ Look(7, group[places[2]]) ^
           Look(8, group[places[3]]);
}

void Derive(Group& to, const Group& from, const Step (&steps)[4]) {
    for (unsigned i = 0; i < 4; ++i) {
        const Step& step = steps[i];
        const std::uint32_t word = LoadBig<std::uint32_t>(&from[step.word]) ^
                                   LookFour(i == 0 ? from : to, step.lookups) ^
                                   Look(step.extraBox, from[step.extra]);
        StoreBig(&to[std::size_t{4} * i], word);
    }
}

/// Sixteen key words, made from a group x that is left ready for the next sixteen.
void MakeKeyWords(std::uint32_t (&words)[16], Group& x, Group& z) {
    for (unsigned i = 0; i < 16; ++i) {
        const bool fromZ = i / 4 % 2 == 0;
        if (i % 4 == 0)
            fromZ ? Derive(z, x, kForward) : Derive(x, z, kBackward);
        const Group& newest = fromZ ? z : x;
        words[i] = LookFour(newest, kKeyLookups[i]) ^ Look(5 + i % 4, newest[kKeyLookups[i][4]]);
    }
}

struct Groups {
    Group x;
    Group z;
};

/// XORs the round function of one half into the other; the kind of round follows from its number.
void Round(const CastSchedule& schedule, unsigned round, std::uint32_t& half, std::uint32_t data) {
    constexpr decltype(&CastRound1) kRounds[3] = {CastRound1, CastRound2, CastRound3};
    half ^= kRounds[round % 3](data, schedule.masking[round], schedule.rotation[round]);
}

} // namespace

void BuildCastSchedule(CastSchedule& schedule, std::span<const std::byte, kCastKeySize> key) {
    Secret<Groups> groups;
    std::memcpy(groups->x, key.data(), key.size());
    MakeKeyWords(schedule.masking, groups->x, groups->z);
    MakeKeyWords(schedule.rotation, groups->x, groups->z);
    for (std::uint32_t& word : schedule.rotation)
        word &= 31;
}

void CastEncryptBlock(const CastSchedule& schedule, const std::byte* in, std::byte* out) {
    auto left = LoadBig<std::uint32_t>(in);
    auto right = LoadBig<std::uint32_t>(in + 4);
    for (unsigned round = 0; round < kCastRounds; round += 2) {
        Round(schedule, round, left, right);
        Round(schedule, round + 1, right, left);
    }
    StoreBig(out, right);
    StoreBig(out + 4, left);
}

void CastDecryptBlock(const CastSchedule& schedule, const std::byte* in, std::byte* out) {
    auto right = LoadBig<std::uint32_t>(in);
    auto left = LoadBig<std::uint32_t>(in + 4);
    for (unsigned round = kCastRounds; round > 0; round -= 2) {
        Round(schedule, round - 1, right, left);
        Round(schedule, round - 2, left, right);
    }
    StoreBig(out, left);
    StoreBig(out + 4, right);
}

} // namespace quilla
