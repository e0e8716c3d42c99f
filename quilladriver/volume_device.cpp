#include "quilladriver/volume_device.h"

#include "platform/disk_codes.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

namespace quilla {

namespace {

/// A request is served in pieces that stay in a processor's second-level cache between cipher and file.
constexpr std::size_t kPieceSize = std::size_t{256} << 10;

/// Zeros are enciphered in a buffer of this size, whatever the length of the request.
constexpr std::size_t kZeroPieceSize = std::size_t{64} << 10;

} // namespace

bool VolumeDevice::Open(File file, CipherId cipher, const DataKey& key) {
    std::uint64_t size = 0;
    if (!file.IsOpen() || !file.GetSize(size) || size < kSectorSize || !cipher_.SetUp(cipher, key))
        return false;
    file_ = std::move(file);
    tellsLoss_ = file_.IsIntact(size);
    sectorCount_ = size / kSectorSize;
    NoteActivity();
    return true;
}

void VolumeDevice::Close() {
    if (file_.IsOpen()) {
        static_cast<void>(file_.Flush());
        file_.Close();
    }
    cipher_.Clear();
    sectorCount_ = 0;
}

std::uint64_t VolumeDevice::Size() const {
    return sectorCount_ * kSectorSize;
}

bool VolumeDevice::Contains(std::uint64_t offset, std::uint64_t length) const {
    return offset % kSectorSize == 0 && length % kSectorSize == 0 && offset <= Size() &&
           length <= Size() - offset;
}

bool VolumeDevice::Read(std::uint64_t offset, std::span<std::byte> buffer) {
    if (!Contains(offset, buffer.size()))
        return false;
    NoteActivity();
    while (!buffer.empty()) {
        const std::span<std::byte> piece = buffer.first(std::min(buffer.size(), kPieceSize));
        const Transfer transfer = file_.ReadAt(offset, piece);
        if (!transfer.succeeded || transfer.bytes != piece.size())
            return false;
        cipher_.Decrypt(offset / kSectorSize, piece);
        offset += piece.size();
        buffer = buffer.subspan(piece.size());
    }
    return true;
}

bool VolumeDevice::Write(std::uint64_t offset, std::span<std::byte> payload) {
    if (!Contains(offset, payload.size()))
        return false;
    NoteActivity();
    while (!payload.empty()) {
        const std::span<std::byte> piece = payload.first(std::min(payload.size(), kPieceSize));
        cipher_.Encrypt(offset / kSectorSize, piece);
        if (!WriteToFile(offset, piece))
            return false;
        offset += piece.size();
        payload = payload.subspan(piece.size());
    }
    return true;
}

bool VolumeDevice::WriteZeroes(std::uint64_t offset, std::uint64_t length) {
    if (!Contains(offset, length))
        return false;
    if (length == 0)
        return true;
    NoteActivity();
    const auto pieceSize = static_cast<std::size_t>(std::min<std::uint64_t>(length, kZeroPieceSize));
    const std::unique_ptr<std::byte[]> buffer(new (std::nothrow) std::byte[pieceSize]);
    if (!buffer)
        return false;
    while (length > 0) {
        const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(length, pieceSize));
        const std::span piece(buffer.get(), size);
        std::memset(piece.data(), 0, size);
        cipher_.Encrypt(offset / kSectorSize, piece);
        if (!WriteToFile(offset, piece))
            return false;
        offset += size;
        length -= size;
    }
    return true;
}

bool VolumeDevice::WriteToFile(std::uint64_t offset, std::span<const std::byte> piece) const {
    if (!IsIntact(offset + piece.size()))
        return false;
    const Transfer transfer = file_.WriteAt(offset, piece);
    return transfer.succeeded && transfer.bytes == piece.size();
}

bool VolumeDevice::Flush() {
    return file_.IsOpen() && file_.Flush() && IsIntact(Size());
}

bool VolumeDevice::ReadSectors(std::uint64_t first, std::span<std::byte> buffer) {
    return first <= sectorCount_ && Read(first * kSectorSize, buffer);
}

bool VolumeDevice::WriteSectors(std::uint64_t first, std::span<std::byte> payload) {
    return first <= sectorCount_ && Write(first * kSectorSize, payload);
}

} // namespace quilla
