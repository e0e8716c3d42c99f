// An enciphered volume on a real file mounted and dismounted under the load of eight clients: what was
// acknowledged is kept, and nothing of the system is left behind.

#include "tests/faults/exported_volume.h"

#include <chrono>
#include <cstdlib>
#include <iterator>
#include <thread>

namespace quilla::test {
namespace {

constexpr unsigned kClients = 8;
constexpr std::uint32_t kSlotSize = 3 * 512;

/// Writes ever higher numbers over its own few sectors, until the server ends the connection.
struct NumberWriter {
    explicit NumberWriter(unsigned index) : offset(index * kSlotSize) {}

    void Run(NbdClient client) {
        while (client.Write(offset, Content(++sent)) == kOk)
            acknowledged = sent;
    }

    /// Each sector was written, and not before the last acknowledged number.
    void Check(NbdClient& client) const {
        const auto found = client.Read(offset, kSlotSize);
        ASSERT_TRUE(found);
        for (std::uint32_t at = 0; at < kSlotSize; at += 512) {
            EXPECT_GE(Number(*found, at, 8), acknowledged) << "an acknowledged write is lost";
            EXPECT_LE(Number(*found, at, 8), sent);
        }
    }

    static Bytes Content(std::uint64_t number) {
        Message sectors;
        for (std::uint32_t at = 0; at < kSlotSize; at += 512)
            sectors.Put64(number).Put(Bytes(504));
        return sectors.Get();
    }

    const std::uint64_t offset;
    std::uint64_t sent = 0;
    std::uint64_t acknowledged = 0;
};

/// How many files and threads this process has.
std::ptrdiff_t CountHoldings() {
    std::ptrdiff_t count = 0;
    for (const char* const folder : {"/proc/self/fd", "/proc/self/task"}) {
        const std::filesystem::directory_iterator entries(folder);
        count += std::distance(begin(entries), end(entries));
    }
    return count;
}

TEST(LoadTest, ADismountUnderFullLoadKeepsWhatWasAcknowledged) {
    ExportedVolume volume(1U << 20);
    std::vector<NumberWriter> writers;
    for (unsigned i = 0; i < kClients; ++i)
        writers.emplace_back(i);
    ASSERT_TRUE(volume.Mount());
    ASSERT_EQ(volume.Connect().Do(kCmdWriteZeroes, 0, kClients * kSlotSize), kOk);
    EXPECT_TRUE(volume.Dismount());
    const std::ptrdiff_t before = CountHoldings();
    const int rounds = std::getenv("QUILLA_LONG_RUN") != nullptr ? 1000 : 20;
    for (int round = 0; round < rounds; ++round) {
        ASSERT_TRUE(volume.Mount());
        std::vector<std::thread> clients;
        for (NumberWriter& writer : writers)
            clients.emplace_back(&NumberWriter::Run, &writer, volume.Connect());
        std::this_thread::sleep_for(std::chrono::milliseconds(10 + round % 20));
        EXPECT_TRUE(volume.Dismount());
        for (std::thread& client : clients)
            client.join();
        ASSERT_TRUE(volume.Mount());
        NbdClient client = volume.Connect();
        for (const NumberWriter& writer : writers)
            writer.Check(client);
        EXPECT_TRUE(volume.Dismount());
    }
    for (const NumberWriter& writer : writers)
        EXPECT_GT(writer.acknowledged, static_cast<unsigned>(rounds));
    EXPECT_LT(CountHoldings(), before + rounds) << "each round leaves something behind";
}

} // namespace
} // namespace quilla::test
