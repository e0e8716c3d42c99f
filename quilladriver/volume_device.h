#pragma once

#include "platform/block_device.h"
#include "platform/file.h"
#include "platform/thread.h"
#include "quilladriver/sector_cipher.h"
#include "quilladriver/worker_pool.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>

namespace quilla {

/// Tells the time as 100-ns units of local file time.
using ActivityClock = std::uint64_t (*)();

/// The enciphered data file of a mounted volume as a block device of 512-byte sectors. A tail shorter than a
/// sector is not part of the device. Requests of several threads may run at once; overlapping ones are not
/// ordered among themselves.
///
/// A request that is not wholly inside the device moves nothing; one that fails may have been carried out in
/// parts. Big requests are split over the processors: one part is deciphered while another is read.
///
/// A file that was cut or removed behind the device's back keeps what is left readable and takes no write and
/// no flush any more, even if it gets its size back: what was in it is gone. After a flush that has failed
/// all others fail, too: the system may have dropped what it could not write, and it tells so once only.
class VolumeDevice final : public BlockDevice {
  public:
    /// The clock supplies the times of LastActivity.
    explicit VolumeDevice(ActivityClock clock) : clock_(clock) {}

    /// Takes over an open file and builds the key schedules; no copy of the key stays behind. False, with the
    /// file closed, when the file holds less than one sector, its size cannot be told or the cipher is not
    /// one of the three.
    [[nodiscard]] bool Open(File file, CipherId cipher, const DataKey& key);

    /// The same with a cipher that is set up already.
    [[nodiscard]] bool Open(File file, SectorCipher cipher);

    /// Flushes and closes the file and wipes the schedules. No request may be running.
    void Close();

    [[nodiscard]] bool IsOpen() const { return file_.IsOpen(); }

    [[nodiscard]] std::uint64_t SectorCount() const { return sectorCount_; }

    /// Whether a range is made of whole sectors of the device.
    [[nodiscard]] bool Contains(std::uint64_t offset, std::uint64_t length) const;

    /// Bytes of all sectors.
    [[nodiscard]] std::uint64_t Size() const override;

    /// Reads and deciphers; offset and size are multiples of the sector size.
    [[nodiscard]] bool Read(std::uint64_t offset, std::span<std::byte> buffer) override;

    /// Enciphers in place, which destroys the payload, and writes.
    [[nodiscard]] bool Write(std::uint64_t offset, std::span<std::byte> payload) override;

    /// Writes enciphered zeros, piece by piece.
    [[nodiscard]] bool WriteZeroes(std::uint64_t offset, std::uint64_t length) override;

    /// Waits until everything written is on the medium.
    [[nodiscard]] bool Flush() override;

    /// When the device was last read or written; the time of Open at first.
    [[nodiscard]] std::uint64_t LastActivity() const { return lastActivity_.load(std::memory_order_relaxed); }

  private:
    [[nodiscard]] bool IsIntact();
    template <typename Work>
    [[nodiscard]] bool ForEachPiece(std::uint64_t length, Work work);
    [[nodiscard]] bool ReadPiece(std::uint64_t offset, std::span<std::byte> piece) const;
    [[nodiscard]] bool WritePiece(std::uint64_t offset, std::span<std::byte> piece);
    [[nodiscard]] bool WriteZeroPiece(std::uint64_t offset, std::size_t size);
    void NoteActivity() { lastActivity_.store(clock_(), std::memory_order_relaxed); }

    ActivityClock clock_;
    File file_;
    SectorCipher cipher_;
    WorkerPool pool_;
    std::uint64_t sectorCount_ = 0;
    bool tellsLoss_ = false; ///< whether the file's system can tell that the file is intact
    std::atomic<bool> isDamaged_ = false;
    Lock flushing_;
    bool flushFailed_ = false;
    std::atomic<std::uint64_t> lastActivity_{0};
};

} // namespace quilla
