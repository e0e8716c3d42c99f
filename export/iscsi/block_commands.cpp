// Commands on the blocks of the medium.

#include "export/iscsi/command_table.h"
#include "export/iscsi/device_server.h"
#include "platform/disk_codes.h"

#include <algorithm>
#include <utility>

namespace quilla::iscsi {

namespace {

/// The longest piece of zeroes written at once: between pieces others get their turn.
constexpr std::uint64_t kZeroPiece = 1U << 20;

/// Address and count in a command block, in blocks.
struct BlockRange {
    std::uint64_t first;
    std::uint64_t count;
};

BlockRange RangeOf(CommandBlock block) {
    switch (SizeOfBlock(block[0])) {
    case 6: // no count means 256
        return {LoadBig<std::uint32_t>(block.data()) & 0x1FFFFF, block[4] == 0 ? 256U : block[4]};
    case 10:
        return {LoadBig<std::uint32_t>(&block[2]), LoadBig<std::uint16_t>(&block[7])};
    case 12:
        return {LoadBig<std::uint32_t>(&block[2]), LoadBig<std::uint32_t>(&block[6])};
    default:
        return {LoadBig<std::uint64_t>(&block[2]), LoadBig<std::uint32_t>(&block[10])};
    }
}

bool HasForceUnitAccess(CommandBlock block) {
    return SizeOfBlock(block[0]) != 6 && (block[1] & kFua) != 0;
}

} // namespace

/// Sets offset on the medium and length, in bytes; says whether the range lies on the medium.
Sense DeviceServer::TakeRange(CommandBlock block, Plan& plan, std::uint64_t& length) const {
    const BlockRange range = RangeOf(block);
    const std::uint64_t blocks = device_.Size() / kSectorSize;
    if (range.first > blocks || range.count > blocks - range.first)
        return kOutOfRange;
    plan.offset = range.first * kSectorSize;
    length = range.count * kSectorSize;
    return kNoSense;
}

Sense DeviceServer::ReadBlocks(CommandBlock block, Plan& plan) {
    std::uint64_t length = 0;
    if (const Sense sense = TakeRange(block, plan, length); sense)
        return sense;
    plan.transfer = Plan::Transfer::Read;
    plan.length = static_cast<std::uint32_t>(length);
    return length > std::uint64_t{kMaxTransferBlocks} * kSectorSize ? kInvalidField : kNoSense;
}

Sense DeviceServer::WriteBlocks(CommandBlock block, Plan& plan) {
    const Sense sense = ReadBlocks(block, plan);
    plan.transfer = Plan::Transfer::Write;
    plan.flushes = HasForceUnitAccess(block) || !unit_.cachesWrites;
    return sense || !unit_.isReadOnly ? sense : kWriteProtected;
}

/// What is written is always compared with the medium afterwards.
Sense DeviceServer::WriteAndVerify(CommandBlock block, Plan& plan) {
    const Sense sense = WriteBlocks(block, plan);
    plan.transfer = Plan::Transfer::WriteThenCompare;
    plan.flushes = true;
    return sense;
}

/// The system's own cache reads ahead.
Sense DeviceServer::Prefetch(CommandBlock block, Plan& plan) {
    std::uint64_t length = 0;
    return TakeRange(block, plan, length);
}

Sense DeviceServer::VerifyBlocks(CommandBlock block, Plan& plan) {
    if (const Sense sense = ReadBlocks(block, plan); sense)
        return sense;
    plan.transfer = Plan::Transfer::Compare;
    if ((block[1] & kByteCheck) != 0)
        return kNoSense;
    plan.transfer = Plan::Transfer::None;
    return VerifyMedium(plan.offset, std::exchange(plan.length, 0));
}

Sense DeviceServer::WriteSame(CommandBlock block, Plan& plan) {
    if (const Sense sense = TakeRange(block, plan, plan.extent); sense)
        return sense;
    if (plan.extent == 0)
        plan.extent = device_.Size() - plan.offset; // all that follows
    plan.transfer = Plan::Transfer::WriteSame;
    plan.length = (block[1] & kNoDataOut) != 0 ? 0 : kSectorSize;
    plan.flushes = !unit_.cachesWrites;
    return unit_.isReadOnly ? kWriteProtected : kNoSense;
}

Sense DeviceServer::SynchronizeCache(CommandBlock block, Plan& plan) {
    std::uint64_t length = 0;
    const Sense sense = TakeRange(block, plan, length);
    return sense ? sense : FlushMedium();
}

Sense DeviceServer::Read(const Plan& plan, std::uint32_t at, std::span<std::byte> room) {
    return device_.Read(plan.offset + at, room) ? kNoSense : kReadError;
}

Sense DeviceServer::Take(const Plan& plan, std::uint32_t at, std::span<std::byte> piece, CommandData& whole) {
    switch (plan.transfer) {
    case Plan::Transfer::Write:
        return device_.Write(plan.offset + at, piece) ? kNoSense : kWriteError;
    case Plan::Transfer::Compare:
    case Plan::Transfer::WriteThenCompare:
        return CompareMedium(plan.offset + at, piece, plan.transfer == Plan::Transfer::WriteThenCompare);
    default:
        std::ranges::copy(piece, whole.begin() + at);
        return kNoSense;
    }
}

Sense DeviceServer::Finish(const Plan& plan, std::uint32_t taken, CommandData& whole) {
    Sense sense;
    if (plan.transfer == Plan::Transfer::WriteSame) {
        if (taken < plan.length)
            return kInvalidField;
        sense = Repeat(plan, whole);
    } else if (plan.transfer == Plan::Transfer::SelectModes && taken > 0) {
        // Behind the header stands a block descriptor, whose size is the header's last byte.
        const std::size_t header = static_cast<std::size_t>(plan.offset);
        const std::size_t pages =
            taken < header ? taken + 1 : header + std::to_integer<std::size_t>(whole[header - 1]);
        if (pages > taken)
            return kParameterLengthError;
        sense = SelectModePages(std::span(whole).subspan(pages, taken - pages), unit_);
    }
    return sense || !plan.flushes ? sense : FlushMedium();
}

/// Whether all of a range can be read.
Sense DeviceServer::VerifyMedium(std::uint64_t offset, std::uint64_t length) {
    while (length > 0) {
        const auto piece = static_cast<std::size_t>(std::min<std::uint64_t>(length, scratch_.size()));
        if (IsAborting())
            return kShuttingDown;
        if (!device_.Read(offset, scratch_.first(piece)))
            return kReadError;
        offset += piece;
        length -= piece;
    }
    return kNoSense;
}

/// Compares data with the medium, after it has been written there if that is wanted.
Sense DeviceServer::CompareMedium(std::uint64_t offset, std::span<std::byte> piece, bool writes) {
    while (!piece.empty()) {
        const std::span<std::byte> part = piece.first(std::min(piece.size(), scratch_.size()));
        const std::span<std::byte> copy = scratch_.first(part.size());
        std::ranges::copy(part, copy.begin());
        if (writes && !device_.Write(offset, part)) // destroys it
            return kWriteError;
        if (!device_.Read(offset, part))
            return kReadError;
        if (!std::ranges::equal(part, copy))
            return kMiscompare;
        offset += part.size();
        piece = piece.subspan(part.size());
    }
    return kNoSense;
}

Sense DeviceServer::Repeat(const Plan& plan, const CommandData& block) {
    const bool isZero =
        plan.length == 0 || std::ranges::all_of(block, [](std::byte value) { return value == std::byte{}; });
    std::uint64_t offset = plan.offset;
    for (std::uint64_t left = plan.extent; left > 0;) {
        const std::uint64_t piece = std::min<std::uint64_t>(left, isZero ? kZeroPiece : scratch_.size());
        if (IsAborting())
            return kShuttingDown;
        bool isWritten = false;
        if (isZero) {
            isWritten = device_.WriteZeroes(offset, piece);
        } else {
            // Made anew for each piece: what is written is destroyed.
            const std::span<std::byte> copies = scratch_.first(static_cast<std::size_t>(piece));
            for (std::size_t at = 0; at < copies.size(); at += block.size())
                std::ranges::copy(block, copies.begin() + static_cast<std::ptrdiff_t>(at));
            isWritten = device_.Write(offset, copies);
        }
        if (!isWritten)
            return kWriteError;
        offset += piece;
        left -= piece;
    }
    return kNoSense;
}

} // namespace quilla::iscsi
