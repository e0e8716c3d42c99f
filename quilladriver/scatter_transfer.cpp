// Requests of file systems, which come as lists of buffers in sectors, turned into transfers of the device.

#include "quilladriver/scatter_transfer.h"

#include "platform/wipe.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <span>

namespace quilla {

namespace {

using Buffers = std::span<const ScatterBuffer>;

std::uint64_t ByteOffset(const ScatterRequest& request) {
    return std::uint64_t{request.start} * kSectorSize;
}

std::uint64_t ByteLength(const ScatterRequest& request) {
    return std::uint64_t{request.sectorCount} * kSectorSize;
}

/// Whether the buffers exist, hold exactly the sectors asked for, and these are on the device.
bool IsValid(const VolumeDevice& device, const ScatterRequest& request) {
    if (request.bufferCount > kMaxScatterBuffers)
        return false;
    std::uint64_t total = 0;
    for (const ScatterBuffer& buffer : Buffers(request.buffers, request.bufferCount)) {
        if (buffer.address == nullptr && buffer.length > 0)
            return false;
        total += buffer.length;
    }
    return total == ByteLength(request) && device.Contains(ByteOffset(request), total);
}

/// A place in a list of buffers that moves on with every copy.
class ScatterCursor {
  public:
    explicit ScatterCursor(const ScatterRequest& request) : buffers_(request.buffers, request.bufferCount) {}

    /// Copies the next bytes of the buffers into a piece, or a piece into them.
    void Gather(std::span<std::byte> piece) {
        Walk(piece, [](std::byte* in, std::uint8_t* out, std::size_t size) { std::memcpy(in, out, size); });
    }
    void Scatter(std::span<std::byte> piece) {
        Walk(piece, [](std::byte* in, std::uint8_t* out, std::size_t size) { std::memcpy(out, in, size); });
    }

  private:
    template <typename Copy>
    void Walk(std::span<std::byte> piece, Copy copy) {
        while (!piece.empty()) {
            const ScatterBuffer& buffer = buffers_.front();
            const std::size_t size = std::min<std::size_t>(piece.size(), buffer.length - used_);
            if (size > 0)
                copy(piece.data(), buffer.address + used_, size);
            piece = piece.subspan(size);
            used_ += size;
            if (used_ == buffer.length) {
                buffers_ = buffers_.subspan(1);
                used_ = 0;
            }
        }
    }

    Buffers buffers_;
    std::size_t used_ = 0; ///< bytes of the first buffer already passed
};

/// Holds one piece of plain text on its way; wiped afterwards.
class PieceBuffer {
  public:
    explicit PieceBuffer(std::uint64_t wanted)
        : size_(static_cast<std::size_t>(std::min<std::uint64_t>(wanted, kLargest))),
          bytes_(new (std::nothrow) std::byte[size_]) {}
    ~PieceBuffer() {
        if (bytes_ != nullptr)
            WipeMemory(bytes_, size_);
        delete[] bytes_;
    }
    PieceBuffer(const PieceBuffer&) = delete;
    PieceBuffer& operator=(const PieceBuffer&) = delete;

    [[nodiscard]] bool IsAllocated() const { return bytes_ != nullptr; }
    [[nodiscard]] std::span<std::byte> First(std::uint64_t wanted) const {
        return {bytes_, static_cast<std::size_t>(std::min<std::uint64_t>(wanted, size_))};
    }

  private:
    static constexpr std::size_t kLargest = std::size_t{64} << 10;

    std::size_t size_;
    std::byte* bytes_;
};

bool HoldsWholeSectors(const ScatterBuffer& buffer) {
    return buffer.length % kSectorSize == 0;
}

DriverStatus ReadInPlace(VolumeDevice& device, const ScatterRequest& request) {
    std::uint64_t offset = ByteOffset(request);
    for (const ScatterBuffer& buffer : Buffers(request.buffers, request.bufferCount)) {
        const std::span bytes(reinterpret_cast<std::byte*>(buffer.address), buffer.length);
        if (!device.Read(offset, bytes))
            return DriverStatus::ReadFault;
        offset += buffer.length;
    }
    return DriverStatus::Success;
}

} // namespace

DriverStatus ReadScattered(VolumeDevice& device, const ScatterRequest& request) {
    if (!IsValid(device, request))
        return DriverStatus::InvalidParameter;
    if (std::ranges::all_of(Buffers(request.buffers, request.bufferCount), HoldsWholeSectors))
        return ReadInPlace(device, request);

    std::uint64_t left = ByteLength(request);
    const PieceBuffer buffer(left);
    if (!buffer.IsAllocated())
        return DriverStatus::NotEnoughMemory;
    ScatterCursor cursor(request);
    for (std::uint64_t offset = ByteOffset(request); left > 0;) {
        const std::span<std::byte> piece = buffer.First(left);
        if (!device.Read(offset, piece))
            return DriverStatus::ReadFault;
        cursor.Scatter(piece);
        offset += piece.size();
        left -= piece.size();
    }
    return DriverStatus::Success;
}

DriverStatus WriteScattered(VolumeDevice& device, const ScatterRequest& request) {
    if (!IsValid(device, request))
        return DriverStatus::InvalidParameter;
    std::uint64_t left = ByteLength(request);
    const PieceBuffer buffer(left);
    if (!buffer.IsAllocated())
        return DriverStatus::NotEnoughMemory;
    ScatterCursor cursor(request);
    for (std::uint64_t offset = ByteOffset(request); left > 0;) {
        const std::span<std::byte> piece = buffer.First(left);
        cursor.Gather(piece);
        if (!device.Write(offset, piece))
            return DriverStatus::WriteFault;
        offset += piece.size();
        left -= piece.size();
    }
    return DriverStatus::Success;
}

} // namespace quilla
