// An enciphered volume on a real file dismounted under the load of eight clients.

#include "tests/faults/exported_volume.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <thread>

namespace quilla::test {
namespace {

constexpr unsigned kClients = 8;

/// Writes ever higher numbers over its own slots, many requests in flight, until the server ends the
/// connection. A slot is a run of sectors of one client; its sectors lie between those of the others. There
/// are more slots than requests in flight, so that no two of these meet.
class NumberWriter {
  public:
    explicit NumberWriter(unsigned index) : index_(index) {}

    void Run(NbdClient client) {
        for (std::uint64_t answered = next_;;) {
            Message payload;
            for (std::uint32_t at = 0; at < kSlotBytes; at += 512)
                payload.Put64(next_).Put(Bytes(504));
            const std::uint64_t number = next_++;
            if (!client.SendRequest(kCmdWrite, Offset(number), kSlotBytes, payload.Get(), 0, number))
                return;
            if (next_ - answered < kInFlight)
                continue;
            if (client.ReceiveReply(answered) != kOk)
                return;
            acknowledged_[answered % kSlots] = answered;
            ++answered;
        }
    }

    /// Whether what the volume holds in each slot was written, and not before the last acknowledged number.
    void Check(NbdClient& client) const {
        for (std::uint64_t slot = 0; slot < kSlots; ++slot) {
            const auto found = client.Read(Offset(slot), kSlotBytes);
            ASSERT_TRUE(found);
            for (std::uint32_t at = 0; at < kSlotBytes; at += 512) {
                EXPECT_GE(Number(*found, at, 8), acknowledged_[slot]) << "an acknowledged write is lost";
                EXPECT_LT(Number(*found, at, 8), next_);
            }
        }
    }

    [[nodiscard]] bool HasWritten() const { return std::ranges::max(acknowledged_) != 0; }

  private:
    static constexpr std::uint32_t kSlots = 32;
    static constexpr std::uint32_t kSlotBytes = 3 * 512;
    static constexpr std::uint32_t kInFlight = 16;

    [[nodiscard]] std::uint64_t Offset(std::uint64_t number) const {
        return (number % kSlots * kClients + index_) * kSlotBytes;
    }

    const unsigned index_;
    std::uint64_t next_ = kSlots;
    std::array<std::uint64_t, kSlots> acknowledged_{};
};

TEST(LoadTest, ADismountUnderFullLoadKeepsWhatWasAcknowledged) {
    ExportedVolume volume(8U << 20);
    ASSERT_TRUE(volume.Mount());
    ASSERT_EQ(volume.Connect().Do(kCmdWriteZeroes, 0, 8U << 20), kOk);
    std::vector<NumberWriter> writers;
    for (unsigned i = 0; i < kClients; ++i)
        writers.emplace_back(i);
    for (int round = 0; round < Rounds(5, 200); ++round) {
        std::vector<std::thread> threads;
        for (NumberWriter& writer : writers)
            threads.emplace_back(&NumberWriter::Run, &writer, volume.Connect());
        std::this_thread::sleep_for(std::chrono::milliseconds(20 + round * 7 % 40));
        EXPECT_TRUE(volume.Dismount());
        for (std::thread& thread : threads)
            thread.join();
        ASSERT_TRUE(volume.Mount());
        NbdClient client = volume.Connect();
        for (const NumberWriter& writer : writers)
            writer.Check(client);
    }
    for (const NumberWriter& writer : writers)
        EXPECT_TRUE(writer.HasWritten());
}

} // namespace
} // namespace quilla::test
