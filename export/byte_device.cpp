// Bytes out of sectors: partial sectors are read, changed and written back under the range lock.

#include "export/byte_device.h"

#include "platform/disk_codes.h"
#include "platform/wipe.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace quilla {

namespace {

using SectorBuffer = std::array<std::byte, kSectorSize>;
constexpr SectorBuffer kZeroSector{};

/// A range of bytes cut at sector boundaries: part of one sector, whole sectors, part of another.
template <typename Length>
struct Cut {
    Length head;
    Length whole;
    Length tail;
};

template <typename Length>
Cut<Length> CutAtSectors(std::uint64_t offset, Length length) {
    const auto toBoundary = static_cast<Length>((kSectorSize - offset % kSectorSize) % kSectorSize);
    const Length head = std::min(toBoundary, length);
    const Length tail = (length - head) % kSectorSize;
    return {.head = head, .whole = length - head - tail, .tail = tail};
}

std::uint64_t SectorStart(std::uint64_t offset) {
    return offset - offset % kSectorSize;
}

} // namespace

bool ByteDevice::Read(std::uint64_t offset, std::span<std::byte> buffer) {
    const auto cut = CutAtSectors(offset, buffer.size());
    if (cut.head > 0 && !ReadInSector(offset, buffer.first(cut.head)))
        return false;
    if (cut.whole > 0) {
        const RangeGuard guard(ranges_, offset + cut.head, cut.whole, RangeLock::Mode::Shared);
        if (!device_.Read(offset + cut.head, buffer.subspan(cut.head, cut.whole)))
            return false;
    }
    return cut.tail == 0 || ReadInSector(offset + cut.head + cut.whole, buffer.last(cut.tail));
}

bool ByteDevice::Write(std::uint64_t offset, std::span<std::byte> payload) {
    const auto cut = CutAtSectors(offset, payload.size());
    if (cut.head > 0 && !WriteInSector(offset, payload.first(cut.head)))
        return false;
    if (cut.whole > 0) {
        const RangeGuard guard(ranges_, offset + cut.head, cut.whole, RangeLock::Mode::Exclusive);
        if (!device_.Write(offset + cut.head, payload.subspan(cut.head, cut.whole)))
            return false;
    }
    return cut.tail == 0 || WriteInSector(offset + cut.head + cut.whole, payload.last(cut.tail));
}

bool ByteDevice::WriteZeroes(std::uint64_t offset, std::uint64_t length) {
    const std::span<const std::byte> zeroes(kZeroSector);
    const auto cut = CutAtSectors(offset, length);
    if (cut.head > 0 && !WriteInSector(offset, zeroes.first(static_cast<std::size_t>(cut.head))))
        return false;
    if (cut.whole > 0) {
        const RangeGuard guard(ranges_, offset + cut.head, cut.whole, RangeLock::Mode::Exclusive);
        if (!device_.WriteZeroes(offset + cut.head, cut.whole))
            return false;
    }
    return cut.tail == 0 ||
           WriteInSector(offset + cut.head + cut.whole, zeroes.first(static_cast<std::size_t>(cut.tail)));
}

bool ByteDevice::ReadInSector(std::uint64_t offset, std::span<std::byte> buffer) {
    Secret<SectorBuffer> sector;
    const RangeGuard guard(ranges_, SectorStart(offset), kSectorSize, RangeLock::Mode::Shared);
    if (!device_.Read(SectorStart(offset), *sector))
        return false;
    std::memcpy(buffer.data(), sector->data() + offset % kSectorSize, buffer.size());
    return true;
}

bool ByteDevice::WriteInSector(std::uint64_t offset, std::span<const std::byte> payload) {
    Secret<SectorBuffer> sector;
    const RangeGuard guard(ranges_, SectorStart(offset), kSectorSize, RangeLock::Mode::Exclusive);
    if (!device_.Read(SectorStart(offset), *sector))
        return false;
    std::memcpy(sector->data() + offset % kSectorSize, payload.data(), payload.size());
    return device_.Write(SectorStart(offset), *sector);
}

} // namespace quilla
