#pragma once

#include "tests/nbd/nbd_client.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <gtest/gtest.h>
#include <string_view>

namespace quilla::test {

/// Eight clients work on the same sectors. In the first area whole sectors are written, each with one
/// repeated number: a sector read back with two numbers was torn. In the second area every client owns a lane
/// of 64 bytes in each sector and finds its own last bytes there: a lost read-modify-write would show. In the
/// third area client 0 writes whole sectors while the others write the lane of each sector that it does not
/// look at.
class SharedSectors {
  public:
    static constexpr std::uint32_t kSectors = 24; ///< of one area; the first must hold zeros at the start

    SharedSectors(std::uint16_t port, std::string_view name, unsigned index)
        : client_(port), name_(name), index_(index), random_(index) {}

    void Run(int rounds) {
        ASSERT_TRUE(client_.Enter(name_));
        std::array<void (SharedSectors::*)(), 4> steps = {&SharedSectors::WriteWhole,
                                                          &SharedSectors::ReadWhole, &SharedSectors::UseLane,
                                                          &SharedSectors::MixBoth};
        for (int i = 0; i < rounds && !testing::Test::HasFatalFailure(); ++i)
            (this->*steps[random_.Below(4)])();
    }

  private:
    void WriteWhole() {
        const std::uint32_t first = random_.Below(kSectors);
        const std::uint32_t count = 1 + random_.Below(kSectors - first);
        Bytes payload(count * 512);
        for (std::uint32_t i = 0; i < count; ++i)
            std::fill_n(payload.begin() + i * 512, 512, random_.Byte());
        ASSERT_EQ(client_.Write(first * 512, payload, random_.Below(8) == 0 ? kFua : std::uint16_t{0}), kOk);
    }

    void ReadWhole() {
        const auto area = client_.Read(0, kSectors * 512);
        ASSERT_TRUE(area);
        for (std::uint32_t i = 0; i < kSectors; ++i)
            ASSERT_EQ(std::count(area->begin() + i * 512, area->begin() + (i + 1) * 512, area->at(i * 512)),
                      512)
                << "torn sector " << i;
    }

    void UseLane() {
        const std::uint32_t sector = random_.Below(kSectors);
        const std::uint64_t at = (kSectors + sector) * 512 + index_ * 64;
        if (!lane_[sector].empty()) {
            ASSERT_EQ(client_.Read(at, 64), lane_[sector]) << "lost update";
        }
        lane_[sector] = Bytes(64, random_.Byte());
        ASSERT_EQ(client_.Write(at, lane_[sector]), kOk);
        if (random_.Below(16) == 0) {
            ASSERT_EQ(client_.Do(kCmdFlush, 0, 0), kOk);
        }
    }

    void MixBoth() {
        const std::uint32_t sector = random_.Below(kSectors);
        const std::uint64_t at = (2 * kSectors + sector) * 512;
        if (index_ != 0) {
            ASSERT_EQ(client_.Write(at + 64, Bytes(64, random_.Byte())), kOk);
            return;
        }
        if (!whole_[sector].empty()) {
            const auto read = client_.Read(at, 512);
            ASSERT_TRUE(read);
            ASSERT_TRUE(std::equal(read->begin() + 128, read->end(), whole_[sector].begin() + 128))
                << "lost write";
        }
        whole_[sector] = Bytes(512, random_.Byte());
        ASSERT_EQ(client_.Write(at, whole_[sector]), kOk);
    }

    NbdClient client_;
    const std::string_view name_;
    const unsigned index_;
    Random random_;
    std::array<Bytes, kSectors> lane_;
    std::array<Bytes, kSectors> whole_;
};

} // namespace quilla::test
