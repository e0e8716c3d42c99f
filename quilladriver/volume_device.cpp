// The data path: pieces of a request between file and cipher, and what is told of a file that lost data.

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

/// A big request is served in pieces that stay in a processor's second-level cache between cipher and file
/// and are worth another processor's wake-up.
constexpr std::uint32_t kPieceSize = 64U << 10;

} // namespace

bool VolumeDevice::Open(File file, CipherId cipher, const DataKey& key) {
    SectorCipher sectorCipher;
    return sectorCipher.SetUp(cipher, key) && Open(std::move(file), std::move(sectorCipher));
}

bool VolumeDevice::Open(File file, SectorCipher cipher) {
    std::uint64_t size = 0;
    if (!file.IsOpen() || !file.GetSize(size) || size < kSectorSize)
        return false;
    file_ = std::move(file);
    cipher_ = std::move(cipher);
    tellsLoss_ = file_.IsIntact(size);
    flushFailed_ = false;
    isDamaged_ = false;
    sectorCount_ = size / kSectorSize;
    NoteActivity();
    return true;
}

void VolumeDevice::Close() {
    pool_.Stop();
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
    if (cipher_.IsPlain()) // nothing that another processor could help with
        return ReadPiece(offset, buffer);
    return ForEachPiece(buffer.size(), [&](std::uint64_t at, std::size_t size) {
        return ReadPiece(offset + at, buffer.subspan(static_cast<std::size_t>(at), size));
    });
}

bool VolumeDevice::Write(std::uint64_t offset, std::span<std::byte> payload) {
    if (!Contains(offset, payload.size()))
        return false;
    NoteActivity();
    if (cipher_.IsPlain())
        return WritePiece(offset, payload);
    return ForEachPiece(payload.size(), [&](std::uint64_t at, std::size_t size) {
        return WritePiece(offset + at, payload.subspan(static_cast<std::size_t>(at), size));
    });
}

bool VolumeDevice::WriteZeroes(std::uint64_t offset, std::uint64_t length) {
    if (!Contains(offset, length))
        return false;
    if (length == 0)
        return true;
    NoteActivity();
    return ForEachPiece(
        length, [&](std::uint64_t at, std::size_t size) { return WriteZeroPiece(offset + at, size); });
}

/// Calls work with the place and size of each piece of a request; false once a call fails.
template <typename Work>
bool VolumeDevice::ForEachPiece(std::uint64_t length, Work work) {
    if (length <= kPieceSize)
        return work(0, static_cast<std::size_t>(length));
    const auto count = static_cast<std::size_t>((length + kPieceSize - 1) / kPieceSize);
    return pool_.ForEach(count, [&](std::size_t index) {
        const std::uint64_t at = std::uint64_t{index} * kPieceSize;
        return work(at, static_cast<std::size_t>(std::min<std::uint64_t>(length - at, kPieceSize)));
    });
}

bool VolumeDevice::ReadPiece(std::uint64_t offset, std::span<std::byte> piece) const {
    const Transfer transfer = file_.ReadAt(offset, piece);
    if (!transfer.succeeded || transfer.bytes != piece.size())
        return false;
    cipher_.Decrypt(offset / kSectorSize, piece);
    return true;
}

bool VolumeDevice::IsIntact() {
    if (tellsLoss_ && !file_.IsIntact(Size()))
        isDamaged_ = true;
    return !isDamaged_;
}

/// A write that comes just after a cut extends the file again; the comparison after it sees that, unless the
/// write ended at the very end.
bool VolumeDevice::WritePiece(std::uint64_t offset, std::span<std::byte> piece) {
    cipher_.Encrypt(offset / kSectorSize, piece);
    if (!IsIntact())
        return false;
    const Transfer transfer = file_.WriteAt(offset, piece);
    return IsIntact() && transfer.succeeded && transfer.bytes == piece.size();
}

bool VolumeDevice::WriteZeroPiece(std::uint64_t offset, std::size_t size) {
    const std::unique_ptr<std::byte[]> zeros(new (std::nothrow) std::byte[size]{});
    return zeros && WritePiece(offset, {zeros.get(), size});
}

bool VolumeDevice::Flush() {
    if (!file_.IsOpen())
        return false;
    const LockGuard guard(flushing_); // a flush that starts after a failed one must see the note of it
    if (!file_.Flush())
        flushFailed_ = true;
    return IsIntact() && !flushFailed_;
}

} // namespace quilla
