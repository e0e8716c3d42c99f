#pragma once

#include "export/byte_device.h"
#include "export/iscsi/parameter_data.h"
#include "export/iscsi/scsi.h"
#include "export/stream_server.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>

namespace quilla::iscsi {

/// What a command wants done, worked out from its command block.
struct Plan {
    enum class Transfer : std::uint8_t {
        None,
        Reply,   ///< parameter data to the initiator
        Read,    ///< of the medium
        Write,   ///< to the medium
        Compare, ///< of data from the initiator with the medium
        WriteThenCompare,
        WriteSame, ///< one block from the initiator, again and again
        SelectModes,
    };

    Transfer transfer = Transfer::None;
    bool flushes = false;     ///< before the status
    Sense sense;              ///< why it is not done
    std::uint32_t length = 0; ///< bytes of data between initiator and target
    std::uint64_t offset = 0; ///< on the medium, bytes
    std::uint64_t extent = 0; ///< bytes of the medium that WriteSame covers
};

/// Data of a command that is needed as a whole.
using CommandData = std::array<std::byte, 512>;

/// Carries out the commands of one initiator on the one logical unit there is: a direct-access device (SPC-4,
/// SBC-3) with blocks of 512 bytes on physical ones of 4096.
class DeviceServer {
  public:
    static constexpr std::size_t kScratchSize = 64U << 10;

    /// All belong to the caller; the scratch memory has kScratchSize bytes.
    DeviceServer(ByteDevice& device, UnitState& unit, std::span<std::byte> scratch,
                 const std::atomic<ServerPhase>& phase)
        : device_(device), unit_(unit), scratch_(scratch), phase_(phase), resetsSeen_(unit.resets) {}

    /// Judges a command, and carries it out as far as it needs no data of the medium or the initiator.
    [[nodiscard]] Plan Begin(CommandBlock block, std::span<const std::uint8_t, 8> lun);

    /// The parameter data of the command last begun.
    [[nodiscard]] std::span<const std::byte> Reply() const { return reply_.Bytes(); }

    [[nodiscard]] Sense Read(const Plan& plan, std::uint32_t at, std::span<std::byte> room);

    /// Takes a piece of the initiator's data, inside the plan's length. The piece may be destroyed.
    [[nodiscard]] Sense Take(const Plan& plan, std::uint32_t at, std::span<std::byte> piece,
                             CommandData& whole);
    /// Called when so many bytes have been taken.
    [[nodiscard]] Sense Finish(const Plan& plan, std::uint32_t taken, CommandData& whole);

    void ResetUnit() { ++unit_.resets; }
    /// Whether somebody has reset the unit: all tasks are gone. The next command will tell the initiator.
    [[nodiscard]] bool NoticeReset();

  private:
    struct Entry;
    using Handler = Sense (DeviceServer::*)(CommandBlock, Plan&);
    static const Entry kEntries[];

    [[nodiscard]] Sense Dispatch(CommandBlock block, bool unitExists, Plan& plan);
    [[nodiscard]] Sense TakeRange(CommandBlock block, Plan& plan, std::uint64_t& length) const;
    Sense SetReply(Plan& plan, std::uint32_t allocated) const;
    void PutCommandDescriptor(const Entry& entry, bool withTimeouts);

    Sense TestUnitReady(CommandBlock block, Plan& plan);
    Sense RequestSense(CommandBlock block, Plan& plan);
    Sense Inquiry(CommandBlock block, Plan& plan);
    Sense ModeSense(CommandBlock block, Plan& plan);
    Sense ModeSelect(CommandBlock block, Plan& plan);
    Sense StartStop(CommandBlock block, Plan& plan);
    Sense ReadCapacity10(CommandBlock block, Plan& plan);
    Sense ReadCapacity16(CommandBlock block, Plan& plan);
    Sense ReportLuns(CommandBlock block, Plan& plan);
    Sense ReportOpcodes(CommandBlock block, Plan& plan);
    Sense ReadBlocks(CommandBlock block, Plan& plan);
    Sense WriteBlocks(CommandBlock block, Plan& plan);
    Sense WriteAndVerify(CommandBlock block, Plan& plan);
    Sense Prefetch(CommandBlock block, Plan& plan);
    Sense VerifyBlocks(CommandBlock block, Plan& plan);
    Sense WriteSame(CommandBlock block, Plan& plan);
    Sense SynchronizeCache(CommandBlock block, Plan& plan);

    [[nodiscard]] Sense VerifyMedium(std::uint64_t offset, std::uint64_t length);
    [[nodiscard]] Sense CompareMedium(std::uint64_t offset, std::span<std::byte> piece, bool writes);
    [[nodiscard]] Sense Repeat(const Plan& plan, const CommandData& block);
    [[nodiscard]] Sense FlushMedium() { return device_.Flush() ? kNoSense : kWriteError; }
    [[nodiscard]] bool IsAborting() const { return phase_.load() == ServerPhase::Aborting; }

    ByteDevice& device_;
    UnitState& unit_;
    std::span<std::byte> scratch_;
    const std::atomic<ServerPhase>& phase_;
    std::uint32_t resetsSeen_;
    Sense attention_; // to be told with the next command
    bool unitExists_ = true;
    ParameterData reply_;
};

} // namespace quilla::iscsi
