// Argon2id against libargon2, with random inputs and costs and every kernel.

#include "tests/support/hex.h"
#include "tests/support/random_bytes.h"
#include "volume/argon2.h"
#include "volume/argon2_block.h"

#include <argon2.h>
#include <gtest/gtest.h>

namespace quilla {
namespace {

using test::Bytes;
using test::ToHex;

TEST(Argon2Oracle, RandomParameters) {
    test::RandomBytes random(1);
    for (int round = 0; round < 60; ++round) {
        const std::uint32_t lanes = 1 + random.Below(16);
        const Argon2Cost cost = {
            .memory = 8 * lanes + random.Below(600), .passes = 1 + random.Below(4), .lanes = lanes};
        Bytes password(random.Below(300)), salt(8 + random.Below(60));
        for (Bytes* bytes : {&password, &salt})
            for (std::byte& byte : *bytes)
                byte = static_cast<std::byte>(random.Below(256));
        Bytes expected(4 + random.Below(200));
        ASSERT_EQ(argon2id_hash_raw(cost.passes, cost.memory, cost.lanes, password.data(), password.size(),
                                    salt.data(), salt.size(), expected.data(), expected.size()),
                  ARGON2_OK);
        for (const Argon2Kernel* kernel : AllArgon2Kernels()) {
            if (!kernel->isSupported())
                continue;
            Bytes tag(expected.size());
            ASSERT_EQ(Argon2id(tag, {.password = password, .salt = salt}, cost, nullptr, kernel),
                      Argon2Result::Done);
            EXPECT_EQ(ToHex(tag), ToHex(expected)) << kernel->name << ", " << cost.memory << " KiB, "
                                                   << cost.passes << " passes, " << lanes << " lanes";
        }
    }
}

} // namespace
} // namespace quilla
