// Sectors that several clients use at once.

#include "tests/export/nbd/server_fixture.h"

#include <algorithm>
#include <cstdlib>
#include <random>
#include <thread>

namespace quilla::test {
namespace {

/// One of eight clients that work on the same sectors. In the first area whole sectors are written, each with
/// one repeated number: a sector read back with two numbers was torn. In the second area every client owns a
/// lane of 64 bytes in each sector and finds its own last bytes there: a lost read-modify-write would show.
/// In the third area client 0 writes whole sectors while the others write the lane of each sector that it
/// does not look at.
class SharedSectors {
  public:
    SharedSectors(NbdClient client, unsigned index)
        : client_(std::move(client)), index_(index), random_(index) {}

    void Run(int rounds) {
        constexpr void (SharedSectors::*kSteps[])() = {&SharedSectors::WriteWhole, &SharedSectors::ReadWhole,
                                                       &SharedSectors::UseLane, &SharedSectors::MixBoth};
        for (int i = 0; i < rounds && !testing::Test::HasFatalFailure(); ++i)
            (this->*kSteps[Below(4)])();
    }

  private:
    static constexpr std::uint32_t kSectors = 24; ///< of one area

    std::uint32_t Below(std::uint32_t limit) { return static_cast<std::uint32_t>(random_() % limit); }
    std::uint8_t Byte() { return static_cast<std::uint8_t>(random_()); }

    void WriteWhole() {
        const std::uint32_t first = Below(kSectors);
        const std::uint32_t count = 1 + Below(kSectors - first);
        Bytes payload(count * 512);
        for (std::uint32_t i = 0; i < count; ++i)
            std::fill_n(payload.begin() + i * 512, 512, Byte());
        ASSERT_EQ(client_.Write(first * 512, payload, Below(8) == 0 ? kFua : std::uint16_t{0}), kOk);
    }

    void ReadWhole() {
        const auto area = client_.Read(0, kSectors * 512);
        ASSERT_TRUE(area);
        for (std::uint32_t at = 0; at < kSectors * 512; at += 512)
            ASSERT_EQ(std::ranges::count(std::span(*area).subspan(at, 512), area->at(at)), 512)
                << "torn sector " << at / 512;
    }

    void UseLane() {
        const std::uint32_t sector = Below(kSectors);
        const std::uint64_t at = (kSectors + sector) * 512 + index_ * 64;
        ASSERT_EQ(client_.Read(at, 64), lane_[sector]) << "lost update";
        lane_[sector] = Bytes(64, Byte());
        ASSERT_EQ(client_.Write(at, lane_[sector]), kOk);
        if (Below(16) == 0) {
            ASSERT_EQ(client_.Do(kCmdFlush, 0, 0), kOk);
        }
    }

    void MixBoth() {
        const std::uint32_t sector = Below(kSectors);
        const std::uint64_t at = (2 * kSectors + sector) * 512;
        if (index_ != 0) {
            ASSERT_EQ(client_.Write(at, Bytes(64, Byte())), kOk);
            return;
        }
        ASSERT_EQ(client_.Read(at + 64, 448), rest_[sector]) << "lost write";
        rest_[sector] = Bytes(448, Byte());
        ASSERT_EQ(client_.Write(at, Bytes(512, rest_[sector][0])), kOk);
    }

    NbdClient client_;
    const unsigned index_;
    std::mt19937 random_;
    std::vector<Bytes> lane_{kSectors, Bytes(64)};
    std::vector<Bytes> rest_{kSectors, Bytes(448)};
};

class SharedSectorsTest : public ServerTest {};

TEST_F(SharedSectorsTest, SectorsAreAtomicUnderEightClients) {
    std::ranges::fill(device.bytes, std::byte{0});
    const int rounds = std::getenv("QUILLA_LONG_RUN") != nullptr ? 10'000 : 300;
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < 8; ++i)
        threads.emplace_back([this, i, rounds] { SharedSectors(Enter(), i).Run(rounds); });
    for (std::thread& thread : threads)
        thread.join();
}

} // namespace
} // namespace quilla::test
