// An enciphered volume on a real file under the load of eight clients, and dismounted in the middle of it.

#include "tests/faults/exported_volume.h"
#include "tests/nbd/shared_sectors.h"

#include <array>
#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

namespace quilla::test {
namespace {

constexpr unsigned kClients = 8;

class LoadTest : public testing::Test {
  protected:
    ExportedVolume volume{std::filesystem::temp_directory_path(), 8U << 20};
};

TEST_F(LoadTest, SectorsStayWholeUnderEightClients) {
    ASSERT_TRUE(volume.Mount());
    ASSERT_EQ(volume.Connect().Do(kCmdWriteZeroes, 0, SharedSectors::kSectors * 512), kOk);
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < kClients; ++i)
        threads.emplace_back(
            [this, i] { SharedSectors(volume.Port(), kExport, i).Run(Rounds(150, 10'000)); });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_TRUE(volume.Dismount());
}

/// Writes ever newer versions over its own slots, many requests in flight, until the server ends the
/// connection. A slot is a run of sectors of one client; its sectors lie between those of the others.
class VersionWriter {
  public:
    static constexpr std::uint32_t kSlots = 32;
    static constexpr std::uint32_t kSlotBytes = 3 * 512;
    static constexpr std::uint32_t kInFlight = 16;

    explicit VersionWriter(unsigned index) : index_(index) {}

    void Run(std::uint16_t port) {
        NbdClient client(port);
        if (!client.Enter(kExport))
            return;
        for (std::uint64_t cookie = 0;; ++cookie) {
            const std::uint64_t answered = cookie - kInFlight;
            if (cookie >= kInFlight && !TakeReply(client, answered))
                break;
            if (!SendNext(client, cookie))
                break;
        }
    }

    /// Whether what the volume holds in each slot is a version sent, and none older than the last one that
    /// was acknowledged.
    void Check(NbdClient& client) const {
        for (std::uint32_t slot = 0; slot < kSlots; ++slot) {
            const auto found = client.Read(Offset(slot), kSlotBytes);
            ASSERT_TRUE(found);
            for (std::uint32_t at = 0; at < kSlotBytes; at += 512) {
                const std::uint64_t version = Number(*found, at, 8);
                EXPECT_GE(version, acknowledged_[slot]) << "an acknowledged write is lost";
                EXPECT_LE(version, sent_[slot]);
                EXPECT_TRUE(version == 0 || Number(*found, at + 504, 8) == (version ^ index_))
                    << "a sector is not whole";
            }
        }
    }

    /// Writes acknowledged so far; for other threads, too.
    [[nodiscard]] unsigned Progress() const { return progress_.load(); }

  private:
    [[nodiscard]] std::uint64_t Offset(std::uint32_t slot) const {
        return std::uint64_t{slot * kClients + index_} * kSlotBytes;
    }

    /// A version never meets an older one of the same slot in flight: there are more slots than requests.
    [[nodiscard]] bool SendNext(NbdClient& client, std::uint64_t cookie) {
        const auto slot = static_cast<std::uint32_t>(cookie % kSlots);
        const std::uint64_t version = ++sent_[slot];
        Message payload;
        for (std::uint32_t at = 0; at < kSlotBytes; at += 512)
            payload.Put64(version).Put(Bytes(496, index_ & 0xFF)).Put64(version ^ index_);
        return client.SendRequest(kCmdWrite, Offset(slot), kSlotBytes, payload.Get(), 0, cookie);
    }

    [[nodiscard]] bool TakeReply(NbdClient& client, std::uint64_t cookie) {
        if (client.ReceiveReply(cookie) != kOk)
            return false;
        const auto slot = static_cast<std::uint32_t>(cookie % kSlots);
        acknowledged_[slot] = sent_[slot];
        ++progress_;
        return true;
    }

    const unsigned index_;
    std::array<std::uint64_t, kSlots> sent_{};
    std::array<std::uint64_t, kSlots> acknowledged_{};
    std::atomic<unsigned> progress_ = 0;
};

TEST_F(LoadTest, ADismountUnderFullLoadKeepsWhatWasAcknowledged) {
    std::vector<std::unique_ptr<VersionWriter>> writers;
    for (unsigned i = 0; i < kClients; ++i)
        writers.push_back(std::make_unique<VersionWriter>(i));
    ASSERT_TRUE(volume.Mount());
    ASSERT_EQ(volume.Connect().Do(kCmdWriteZeroes, 0, 8U << 20), kOk);
    for (int round = 0; round < Rounds(5, 200); ++round) {
        std::vector<std::thread> threads;
        for (const auto& writer : writers)
            threads.emplace_back([&] { writer->Run(volume.Port()); });
        for (const auto& writer : writers) // all are at work
            while (writer->Progress() < static_cast<unsigned>(round + 1) * VersionWriter::kInFlight)
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
        std::this_thread::sleep_for(std::chrono::milliseconds(round * 7 % 40));
        EXPECT_TRUE(volume.Dismount());
        for (std::thread& thread : threads)
            thread.join();
        ASSERT_TRUE(volume.Mount());
        NbdClient client = volume.Connect();
        for (const auto& writer : writers)
            writer->Check(client);
    }
}

} // namespace
} // namespace quilla::test
