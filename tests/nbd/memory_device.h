#pragma once

#include "platform/block_device.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>

namespace quilla::test {

/// A device in memory that fails on demand. It takes no lock around its bytes: two requests that meet in one
/// sector, one of them writing, are a data race that ThreadSanitizer reports.
class MemoryDevice final : public BlockDevice {
  public:
    explicit MemoryDevice(std::size_t size) : bytes(size) {}

    [[nodiscard]] std::uint64_t Size() const override { return bytes.size(); }

    [[nodiscard]] bool Read(std::uint64_t offset, std::span<std::byte> buffer) override {
        WaitAtGate();
        if (!IsFit(offset, buffer.size()) || Meets(offset, buffer.size()))
            return false;
        std::memcpy(buffer.data(), bytes.data() + offset, buffer.size());
        std::this_thread::yield(); // lets others in between the halves of a read-modify-write
        return true;
    }

    [[nodiscard]] bool Write(std::uint64_t offset, std::span<std::byte> payload) override {
        WaitAtGate();
        if (!IsFit(offset, payload.size()) || Meets(offset, payload.size()))
            return false;
        std::memcpy(bytes.data() + offset, payload.data(), payload.size());
        std::ranges::fill(payload, std::byte{0xDD}); // as a cipher in place would leave it
        return true;
    }

    [[nodiscard]] bool WriteZeroes(std::uint64_t offset, std::uint64_t length) override {
        WaitAtGate();
        if (!IsFit(offset, length) || Meets(offset, length))
            return false;
        std::memset(bytes.data() + offset, 0, static_cast<std::size_t>(length));
        return true;
    }

    [[nodiscard]] bool Flush() override {
        ++flushes;
        return !flushFails;
    }

    void CloseGate() {
        const std::lock_guard guard(mutex_);
        gateClosed_ = true;
    }
    void OpenGate() {
        {
            const std::lock_guard guard(mutex_);
            gateClosed_ = false;
        }
        changed_.notify_all();
    }
    /// Waits until a request stands before the closed gate.
    void AwaitRequestAtGate() {
        std::unique_lock guard(mutex_);
        changed_.wait(guard, [this] { return atGate_ > 0; });
    }

    std::vector<std::byte> bytes;
    std::atomic<std::uint64_t> badSector = ~std::uint64_t{0};
    std::atomic<bool> flushFails = false;
    std::atomic<int> flushes = 0;
    std::atomic<int> rulesBroken = 0;

  private:
    bool IsFit(std::uint64_t offset, std::uint64_t length) {
        const bool isFit =
            offset % 512 == 0 && length % 512 == 0 && offset <= Size() && length <= Size() - offset;
        rulesBroken += isFit ? 0 : 1;
        return isFit;
    }
    bool Meets(std::uint64_t offset, std::uint64_t length) const {
        const std::uint64_t bad = badSector.load();
        return bad >= offset / 512 && bad < (offset + length) / 512;
    }
    void WaitAtGate() {
        std::unique_lock guard(mutex_);
        ++atGate_;
        changed_.notify_all();
        changed_.wait(guard, [this] { return !gateClosed_; });
        --atGate_;
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    int atGate_ = 0;
    bool gateClosed_ = false;
};

} // namespace quilla::test
