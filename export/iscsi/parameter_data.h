#pragma once

#include "export/iscsi/scsi.h"
#include "platform/byte_order.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace quilla::iscsi {

/// What all sessions of a logical unit share.
struct UnitState {
    /// Distinguishes the unit from every other: two of one identity are one to an operating system.
    std::uint64_t identity = 0;
    bool isReadOnly = false;
    /// Off: every write is on the medium before it is answered.
    std::atomic<bool> cachesWrites = true;
    /// Counts logical unit resets.
    std::atomic<std::uint32_t> resets = 0;
};

/// The answer to a command that asks about the unit, built front to back.
class ParameterData {
  public:
    void Clear() { used_ = 0; }
    void Put8(unsigned value) { Put<std::uint8_t>(value); }
    void Put16(unsigned value) { Put<std::uint16_t>(value); }
    void Put32(std::uint64_t value) { Put<std::uint32_t>(value); }
    void Put64(std::uint64_t value) { Put<std::uint64_t>(value); }
    void PutZeroes(std::size_t count);
    void Put(std::span<const std::uint8_t> bytes);
    /// Text, filled up with blanks.
    void PutText(std::string_view text, std::size_t size);
    /// Zeroes up to a size.
    void FillTo(std::size_t size) { PutZeroes(size - used_); }

    /// Writes the count of bytes behind a length field into it.
    void SetLength8(std::size_t at) { bytes_[at] = static_cast<std::byte>(used_ - at - 1); }
    void SetLength16(std::size_t at) { Store(at, static_cast<std::uint16_t>(used_ - at - 2)); }
    void SetLength32(std::size_t at) { Store(at, static_cast<std::uint32_t>(used_ - at - 4)); }

    [[nodiscard]] std::size_t Size() const { return used_; }
    [[nodiscard]] std::span<const std::byte> Bytes() const { return std::span(bytes_).first(used_); }

  private:
    template <typename Number>
    void Put(std::uint64_t value) {
        Store(used_, static_cast<Number>(value));
        used_ += sizeof(Number);
    }
    template <typename Number>
    void Store(std::size_t at, Number value) {
        StoreBig(bytes_.data() + at, value);
    }

    std::array<std::byte, 1024> bytes_;
    std::size_t used_ = 0;
};

/// The most that one command may move, and what it is best made a multiple of.
inline constexpr std::uint32_t kMaxTransferBlocks = 65536;
inline constexpr std::uint32_t kBlocksInPhysical = 8;

/// INQUIRY (SPC-4, 6.4 and 7.8): standard data, or a page of vital product data.
void PutStandardInquiry(ParameterData& data, bool unitExists);
[[nodiscard]] Sense PutVitalPage(ParameterData& data, std::uint8_t page, const UnitState& unit);

/// The mode pages that a mask of sub-page and page asks for (SPC-4, 7.5; SBC-3, 6.4): current values, or
/// which bits can be changed.
[[nodiscard]] Sense PutModePages(ParameterData& data, std::uint8_t control, std::uint8_t subpage,
                                 const UnitState& unit);
/// Takes over the pages of a mode parameter list, or nothing of it.
[[nodiscard]] Sense SelectModePages(std::span<const std::byte> pages, UnitState& unit);

} // namespace quilla::iscsi
