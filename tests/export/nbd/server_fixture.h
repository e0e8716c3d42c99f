#pragma once

#include "export/nbd/server.h"
#include "tests/export/nbd/memory_device.h"
#include "tests/export/nbd/nbd_client.h"

#include <gtest/gtest.h>

namespace quilla::test {

inline constexpr std::string_view kName = "SEC0-00112233445566778899aabbccddeeff";
inline constexpr std::uint32_t kSize = 8U << 20;

/// A server over a device in memory.
class ServerTest : public testing::Test {
  protected:
    explicit ServerTest(ServerLimits limits = {}) : server(device, ranges, kName, limits) {}
    void SetUp() override { ASSERT_TRUE(server.Start()); }
    void TearDown() override {
        server.Stop();
        EXPECT_EQ(device.rulesBroken, 0) << "the device was asked for something outside its rules";
    }

    [[nodiscard]] NbdClient Connect() const { return NbdClient(server.Port()); }
    /// A client inside the export.
    [[nodiscard]] NbdClient Enter() const {
        NbdClient client = Connect();
        EXPECT_TRUE(client.Enter(kName));
        return client;
    }
    [[nodiscard]] Bytes Stored(std::uint64_t offset, std::size_t length) const {
        const auto* const first = reinterpret_cast<const std::uint8_t*>(device.bytes.data()) + offset;
        return Bytes(first, first + length);
    }

    MemoryDevice device{kSize};
    RangeLock ranges;
    nbd::Server server;
};

} // namespace quilla::test
