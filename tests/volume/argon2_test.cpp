// BLAKE2b and Argon2id against the values of their RFCs, every kernel, and the ways in which the function
// ends without a result.

#include "tests/support/hex.h"
#include "volume/argon2.h"
#include "volume/argon2_block.h"
#include "volume/blake2b.h"

#include <algorithm>
#include <array>
#include <gtest/gtest.h>

namespace quilla {
namespace {

using test::Bytes;
using test::ToHex;

Bytes Blake2b(std::span<const std::byte> message, std::size_t size, std::size_t piece) {
    Blake2bState state;
    Blake2bInit(state, size);
    for (; !message.empty(); message = message.subspan(std::min(piece, message.size())))
        Blake2bUpdate(state, message.first(std::min(piece, message.size())));
    Bytes digest(size);
    Blake2bFinal(state, digest);
    return digest;
}

TEST(Blake2b, AnswersOfTheRfc) {
    // RFC 7693, appendix A, and the unkeyed hash of the empty message.
    EXPECT_EQ(ToHex(Blake2b(test::AsBytes("abc"), 64, 64)),
              "BA80A53F981C4D0D6A2797B69F12F6E94C212F14685AC4B74B12BB6FDBFFA2D1"
              "7D87C5392AAB792DC252D5DE4533CC9518D38AA8DBF1925AB92386EDD4009923");
    EXPECT_EQ(ToHex(Blake2b({}, 64, 64)), "786A02F742015903C6C6FD852552D272912F4740E15847618A86E217F71F5419"
                                          "D25E1031AFEE585313896444934EB04B903A685B1448B755D56F701AFE9BE2CE");
    // Pieces of any size around a block of 128 bytes hash alike.
    for (const std::size_t size : {127U, 128U, 129U, 256U, 1024U}) {
        const Bytes message(size, std::byte{0xA5});
        for (const std::size_t piece : {1U, 127U, 128U, 129U})
            EXPECT_EQ(Blake2b(message, 20, piece), Blake2b(message, 20, size));
    }
}

TEST(Argon2id, AnswerOfTheRfcWithEveryKernel) {
    // RFC 9106, section 5.3.
    const Bytes password(32, std::byte{1}), salt(16, std::byte{2}), secret(8, std::byte{3});
    const Bytes associated(12, std::byte{4});
    for (const Argon2Kernel* kernel : AllArgon2Kernels()) {
        if (!kernel->isSupported())
            continue;
        Bytes tag(32);
        Argon2Watch watch;
        ASSERT_EQ(Argon2id(tag, {password, salt, secret, associated}, {.memory = 32, .passes = 3, .lanes = 4},
                           &watch, kernel),
                  Argon2Result::Done);
        EXPECT_EQ(ToHex(tag), "0D640DF58D78766C08C037A34A8B53C9D01EF0452D75B65EB52520E96B01E659")
            << kernel->name;
        EXPECT_EQ(watch.percentDone, 100U);
    }
}

TEST(Argon2id, EndsEarlyWhenToldAndWithoutMemory) {
    const Bytes salt(32);
    std::array<std::byte, 20> tag{};
    Argon2Watch watch;
    watch.stop = true;
    EXPECT_EQ(
        Argon2id(tag, {.password = {}, .salt = salt}, {.memory = 8192, .passes = 64, .lanes = 2}, &watch),
        Argon2Result::Stopped);
    EXPECT_LT(watch.percentDone, 5U) << "stops after a slice";
    constexpr Argon2Cost kTooMuch = {.memory = 0xFFFFFFF0, .passes = 1, .lanes = 1}; // 4 TiB
    EXPECT_EQ(Argon2id(tag, {.password = {}, .salt = salt}, kTooMuch), Argon2Result::NoMemory);
    EXPECT_TRUE(std::ranges::all_of(tag, [](std::byte byte) { return byte == std::byte{}; }));
}

} // namespace
} // namespace quilla
