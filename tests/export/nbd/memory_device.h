#pragma once

#include "platform/block_device.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

namespace quilla::test {

/// A device in memory that fails on demand. It takes no lock around its bytes: two requests that meet in one
/// sector, one of them writing, are a data race that ThreadSanitizer reports.
class MemoryDevice final : public BlockDevice {
  public:
    /// The bytes at first look like nothing that a test writes.
    explicit MemoryDevice(std::size_t size) : bytes(size) {
        for (std::size_t i = 0; i < size; ++i)
            bytes[i] = static_cast<std::byte>(i * 7 + i / 512);
    }

    [[nodiscard]] std::uint64_t Size() const override { return bytes.size(); }

    [[nodiscard]] bool Read(std::uint64_t offset, std::span<std::byte> buffer) override {
        if (!Admit(offset, buffer.size()) || IsBad(offset, buffer.size()))
            return false;
        std::memcpy(buffer.data(), bytes.data() + offset, buffer.size());
        std::this_thread::yield(); // lets others in between the halves of a read-modify-write
        return true;
    }

    [[nodiscard]] bool Write(std::uint64_t offset, std::span<std::byte> payload) override {
        if (!Admit(offset, payload.size()) || (!onlyReadsFail && IsBad(offset, payload.size())))
            return false;
        std::memcpy(bytes.data() + offset, payload.data(), payload.size());
        std::ranges::fill(payload, std::byte{0xDD}); // as a cipher in place would leave it
        return true;
    }

    [[nodiscard]] bool WriteZeroes(std::uint64_t offset, std::uint64_t length) override {
        if (!Admit(offset, length) || IsBad(offset, length))
            return false;
        std::memset(bytes.data() + offset, 0, static_cast<std::size_t>(length));
        return true;
    }

    [[nodiscard]] bool Flush() override {
        ++flushes;
        return !flushFails;
    }

    /// Transfers wait before a closed gate.
    void SetGate(bool isClosed) {
        gateClosed_ = isClosed;
        gateClosed_.notify_all();
    }

    std::vector<std::byte> bytes;
    std::atomic<std::uint64_t> badSector = ~std::uint64_t{0};
    std::atomic<bool> onlyReadsFail = false; ///< of the bad sector
    std::atomic<bool> flushFails = false;
    std::atomic<int> flushes = 0;
    std::atomic<int> requests = 0;    ///< that have come, to the gate if it is closed
    std::atomic<int> rulesBroken = 0; ///< requests that are empty, not made of sectors or not inside

  private:
    /// Waits until a transfer may begin; whether it may.
    bool Admit(std::uint64_t offset, std::uint64_t length) {
        ++requests;
        gateClosed_.wait(true);
        const bool isFit = length > 0 && offset % 512 == 0 && length % 512 == 0 && offset <= Size() &&
                           length <= Size() - offset;
        rulesBroken += isFit ? 0 : 1;
        return isFit;
    }
    [[nodiscard]] bool IsBad(std::uint64_t offset, std::uint64_t length) const {
        return badSector >= offset / 512 && badSector < (offset + length) / 512;
    }

    std::atomic<bool> gateClosed_ = false;
};

} // namespace quilla::test
