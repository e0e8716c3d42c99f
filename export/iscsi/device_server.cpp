// Which commands there are, and those that ask about the unit. What moves data is in block_commands.cpp.

#include "export/iscsi/device_server.h"

#include "export/iscsi/command_table.h"
#include "platform/disk_codes.h"

#include <algorithm>
#include <utility>

namespace quilla::iscsi {

namespace {

bool IsUnitZero(std::span<const std::uint8_t, 8> lun) {
    // Peripheral or flat addressing of unit 0; nothing below it.
    return (lun[0] & 0x3F) == 0 &&
           std::ranges::all_of(lun.subspan(1), [](std::uint8_t value) { return value == 0; });
}

constexpr std::uint8_t kRequestSense = 0x03, kInquiry = 0x12, kReportLuns = 0xA0;

/// Commands that are carried out whatever has happened to the unit, and without one.
bool IsAlwaysServed(std::uint8_t opcode) {
    return opcode == kInquiry || opcode == kReportLuns || opcode == kRequestSense;
}

} // namespace

#define BLOCKS(opcode, options, handler)                                                                     \
    { opcode, kNoAction, UsageOfBlocks(opcode, options), &DeviceServer::handler }

// One entry for an opcode, in their order. The masks say which bits of a command block mean something
// (SPC-4, 6.35); any other bit that is set makes the command invalid.
const DeviceServer::Entry DeviceServer::kEntries[] = {
    {0x00, kNoAction, {0x00}, &DeviceServer::TestUnitReady},
    {kRequestSense, kNoAction, {0x03, 0, 0, 0, 0xFF}, &DeviceServer::RequestSense},
    BLOCKS(0x08, 0, ReadBlocks),
    BLOCKS(0x0A, 0, WriteBlocks),
    {kInquiry, kNoAction, {0x12, 0x01, 0xFF, 0xFF, 0xFF}, &DeviceServer::Inquiry},
    {0x15, kNoAction, {0x15, 0x10, 0, 0, 0xFF}, &DeviceServer::ModeSelect},
    {0x1A, kNoAction, {0x1A, 0x08, 0xFF, 0xFF, 0xFF}, &DeviceServer::ModeSense},
    {0x1B, kNoAction, {0x1B, 0x01, 0, 0x0F, 0xF7}, &DeviceServer::StartStop},
    {0x1E, kNoAction, {0x1E, 0, 0, 0, 0x03}, &DeviceServer::TestUnitReady}, // nothing can be removed
    {0x25, kNoAction, {0x25}, &DeviceServer::ReadCapacity10},
    BLOCKS(0x28, kDpo | kFua, ReadBlocks),
    BLOCKS(0x2A, kDpo | kFua, WriteBlocks),
    BLOCKS(0x2E, kDpo | kByteCheck, WriteAndVerify),
    BLOCKS(0x2F, kDpo | kByteCheck, VerifyBlocks),
    BLOCKS(0x34, kImmediateAnswer, Prefetch),
    BLOCKS(0x35, kImmediateAnswer, SynchronizeCache),
    BLOCKS(0x41, 0, WriteSame),
    {0x55, kNoAction, {0x55, 0x10, 0, 0, 0, 0, 0, 0xFF, 0xFF}, &DeviceServer::ModeSelect},
    {0x5A, kNoAction, {0x5A, 0x18, 0xFF, 0xFF, 0, 0, 0, 0xFF, 0xFF}, &DeviceServer::ModeSense},
    BLOCKS(0x88, kDpo | kFua, ReadBlocks),
    BLOCKS(0x8A, kDpo | kFua, WriteBlocks),
    BLOCKS(0x8E, kDpo | kByteCheck, WriteAndVerify),
    BLOCKS(0x8F, kDpo | kByteCheck, VerifyBlocks),
    BLOCKS(0x90, kImmediateAnswer, Prefetch),
    BLOCKS(0x91, kImmediateAnswer, SynchronizeCache),
    BLOCKS(0x93, kNoDataOut, WriteSame),
    {0x9E, 0x10, {0x9E, 0x1F, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF}, &DeviceServer::ReadCapacity16},
    {kReportLuns, kNoAction, {0xA0, 0, 0xFF, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF}, &DeviceServer::ReportLuns},
    {0xA3, 0x0C, {0xA3, 0x1F, 0x87, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, &DeviceServer::ReportOpcodes},
    BLOCKS(0xA8, kDpo | kFua, ReadBlocks),
    BLOCKS(0xAA, kDpo | kFua, WriteBlocks),
    BLOCKS(0xAE, kDpo | kByteCheck, WriteAndVerify),
    BLOCKS(0xAF, kDpo | kByteCheck, VerifyBlocks),
};

#undef BLOCKS

bool DeviceServer::NoticeReset() {
    const std::uint32_t resets = unit_.resets;
    if (resets == resetsSeen_)
        return false;
    resetsSeen_ = resets;
    attention_ = kUnitWasReset;
    return true;
}

Plan DeviceServer::Begin(CommandBlock block, std::span<const std::uint8_t, 8> lun) {
    Plan plan;
    reply_.Clear();
    unitExists_ = IsUnitZero(lun);
    plan.sense = Dispatch(block, unitExists_, plan);
    if (plan.sense)
        plan = {.sense = plan.sense};
    return plan;
}

Sense DeviceServer::Dispatch(CommandBlock block, bool unitExists, Plan& plan) {
    if (!unitExists && !IsAlwaysServed(block[0]))
        return kNoSuchUnit;
    if (attention_ && !IsAlwaysServed(block[0]))
        return std::exchange(attention_, kNoSense);
    const Entry* const entry = std::ranges::find(kEntries, block[0], &Entry::opcode);
    if (entry == std::end(kEntries))
        return kInvalidOpcode;
    if (entry->action != kNoAction && entry->action != (block[1] & kActionMask))
        return kInvalidField;
    const std::size_t size = SizeOfBlock(block[0]);
    for (std::size_t i = 1; i < size; ++i)
        if ((block[i] & ~entry->usage[i]) != 0)
            return kInvalidField;
    return (this->*entry->handler)(block, plan);
}

/// Sends what has been put together, up to what the initiator has room for.
Sense DeviceServer::SetReply(Plan& plan, std::uint32_t allocated) const {
    plan.transfer = Plan::Transfer::Reply;
    plan.length = std::min(static_cast<std::uint32_t>(reply_.Size()), allocated);
    return kNoSense;
}

Sense DeviceServer::TestUnitReady(CommandBlock /*block*/, Plan& /*plan*/) {
    return kNoSense;
}

Sense DeviceServer::RequestSense(CommandBlock block, Plan& plan) {
    const Sense sense = unitExists_ ? std::exchange(attention_, kNoSense) : kNoSuchUnit;
    reply_.Put(FixedSense(sense));
    return SetReply(plan, block[4]);
}

Sense DeviceServer::Inquiry(CommandBlock block, Plan& plan) {
    constexpr unsigned kVitalData = 1;
    if ((block[1] & kVitalData) == 0 && block[2] != 0)
        return kInvalidField;
    if ((block[1] & kVitalData) == 0)
        PutStandardInquiry(reply_, unitExists_);
    else if (const Sense sense = unitExists_ ? PutVitalPage(reply_, block[2], unit_) : kNoSuchUnit; sense)
        return sense;
    return SetReply(plan, LoadBig<std::uint16_t>(&block[3]));
}

Sense DeviceServer::ModeSense(CommandBlock block, Plan& plan) {
    constexpr unsigned kNoBlockDescriptor = 0x08, kLong = 0x5A;
    constexpr unsigned kHasForceUnitAccess = 0x10, kIsWriteProtected = 0x80;
    const bool isLong = block[0] == kLong;
    const unsigned device = kHasForceUnitAccess | (unit_.isReadOnly ? kIsWriteProtected : 0);
    const unsigned descriptorSize = (block[1] & kNoBlockDescriptor) != 0 ? 0 : 8;
    reply_.PutZeroes(isLong ? 3 : 2);
    reply_.Put8(device);
    if (isLong)
        reply_.PutZeroes(3);
    reply_.Put8(descriptorSize);
    if (descriptorSize > 0) {
        const std::uint64_t blocks = device_.Size() / kSectorSize;
        reply_.Put32(std::min<std::uint64_t>(blocks, 0xFFFFFFFF));
        reply_.Put32(kSectorSize);
    }
    if (const Sense sense = PutModePages(reply_, block[2], block[3], unit_); sense)
        return sense;
    isLong ? reply_.SetLength16(0) : reply_.SetLength8(0);
    return SetReply(plan, isLong ? LoadBig<std::uint16_t>(&block[7]) : block[4]);
}

Sense DeviceServer::ModeSelect(CommandBlock block, Plan& plan) {
    plan.transfer = Plan::Transfer::SelectModes;
    plan.length = block[0] == 0x15 ? block[4] : LoadBig<std::uint16_t>(&block[7]);
    plan.offset = block[0] == 0x15 ? 4 : 8; // size of the list's header
    return plan.length > sizeof(CommandData) ? kParameterLengthError : kNoSense;
}

/// The unit cannot stop; what it was told is on the medium when it is to.
Sense DeviceServer::StartStop(CommandBlock block, Plan& /*plan*/) {
    return (block[4] & 1) == 0 ? FlushMedium() : kNoSense;
}

Sense DeviceServer::ReadCapacity10(CommandBlock /*block*/, Plan& plan) {
    reply_.Put32(std::min<std::uint64_t>(device_.Size() / kSectorSize - 1, 0xFFFFFFFF));
    reply_.Put32(kSectorSize);
    return SetReply(plan, 8);
}

Sense DeviceServer::ReadCapacity16(CommandBlock block, Plan& plan) {
    reply_.Put64(device_.Size() / kSectorSize - 1);
    reply_.Put32(kSectorSize);
    reply_.Put8(0);
    reply_.Put8(3); // 2^3 blocks in a physical one
    reply_.FillTo(32);
    return SetReply(plan, LoadBig<std::uint32_t>(&block[10]));
}

Sense DeviceServer::ReportLuns(CommandBlock block, Plan& plan) {
    constexpr unsigned kWellKnownOnly = 1, kLastSelection = 2;
    const auto allocated = LoadBig<std::uint32_t>(&block[6]);
    if (block[2] > kLastSelection || allocated < 16)
        return kInvalidField;
    reply_.Put32(block[2] == kWellKnownOnly ? 0 : 8);
    reply_.FillTo(block[2] == kWellKnownOnly ? 8 : 16); // unit 0
    return SetReply(plan, allocated);
}

void DeviceServer::PutCommandDescriptor(const Entry& entry, bool withTimeouts) {
    constexpr unsigned kHasAction = 1, kHasTimeouts = 2;
    reply_.Put8(entry.opcode);
    reply_.Put8(0);
    reply_.Put16(entry.action == kNoAction ? 0 : entry.action);
    reply_.Put8(0);
    reply_.Put8((entry.action == kNoAction ? 0 : kHasAction) | (withTimeouts ? kHasTimeouts : 0));
    reply_.Put16(SizeOfBlock(entry.opcode));
    if (withTimeouts)
        reply_.Put(kNoTimeouts);
}

Sense DeviceServer::ReportOpcodes(CommandBlock block, Plan& plan) {
    constexpr unsigned kAll = 0, kByAction = 2; // between them: by opcode alone
    constexpr unsigned kIsUnknown = 1, kIsSupported = 3, kHasTimeouts = 0x80;
    const bool withTimeouts = (block[2] & kHasTimeouts) != 0;
    const unsigned option = block[2] & 7;
    const unsigned action = option == kByAction ? LoadBig<std::uint16_t>(&block[4]) : 0U;
    const auto allocated = LoadBig<std::uint32_t>(&block[6]);
    if (option == kAll) {
        reply_.Put32(0);
        for (const Entry& entry : kEntries)
            PutCommandDescriptor(entry, withTimeouts);
        reply_.SetLength32(0);
        return SetReply(plan, allocated);
    }
    const Entry* const named = std::ranges::find(kEntries, block[3], &Entry::opcode);
    const bool isOpcodeKnown = named != std::end(kEntries);
    const bool hasActions = isOpcodeKnown && named->action != kNoAction;
    if (option > kByAction || (isOpcodeKnown && hasActions != (option == kByAction)))
        return kInvalidField;
    const bool isSupported = isOpcodeKnown && (!hasActions || named->action == action);
    reply_.Put8(0);
    reply_.Put8(isSupported ? kIsSupported | (withTimeouts ? kHasTimeouts : 0) : kIsUnknown);
    reply_.Put16(isSupported ? SizeOfBlock(named->opcode) : 0);
    if (!isSupported)
        return SetReply(plan, allocated);
    auto usage = named->usage;
    if (hasActions)
        usage[1] = named->action;
    reply_.Put(std::span(usage).first(SizeOfBlock(named->opcode)));
    if (withTimeouts)
        reply_.Put(kNoTimeouts);
    return SetReply(plan, allocated);
}

} // namespace quilla::iscsi
