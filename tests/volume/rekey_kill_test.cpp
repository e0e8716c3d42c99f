// A process killed while it changes a volume's password leaves a key file with the old key block or the new
// one, never a mixture that opens with neither password.

#include "tests/support/random_bytes.h"
#include "tests/support/scratch_file.h"
#include "volume/key_file.h"

#include <chrono>
#include <csignal>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace quilla {
namespace {

using test::Bytes;
using test::ScratchFile;

constexpr ChunkHeader kHeader = KeyBlockHeader(CipherId::Twofish);

/// Rewrites the key block over and over in a process of its own, which is killed after a while.
void KillDuringRewrites(const ScratchFile& file, std::span<const Bytes> blocks, std::uint32_t microseconds) {
    const pid_t worker = fork();
    if (worker == 0) {
        for (std::size_t i = 0;
             RewriteKeyFileChunk(file.Path(), kHeader, blocks[i % blocks.size()]) == KeyFileStatus::Done;
             ++i) {
        }
        _exit(1);
    }
    ASSERT_GT(worker, 0);
    std::this_thread::sleep_for(std::chrono::microseconds(microseconds));
    EXPECT_EQ(waitpid(worker, nullptr, WNOHANG), 0) << "ended by itself";
    kill(worker, SIGKILL);
    waitpid(worker, nullptr, 0);
}

TEST(Rekeying, SurvivesBeingKilled) {
    const ScratchFile file(".key");
    VolumeRecord record{};
    record.Cipher = CipherId::Twofish;
    ASSERT_EQ(CreateKeyFile(file.Path(), record, PasswordDigest{}), KeyFileStatus::Done);
    test::RandomBytes random(20);
    const Bytes blocks[] = {random.Make(sizeof(KeyBlock)), random.Make(sizeof(KeyBlock))};
    ASSERT_EQ(RewriteKeyFileChunk(file.Path(), kHeader, blocks[0]), KeyFileStatus::Done);
    int found[2] = {};
    for (int i = 0; i < 50; ++i) {
        KillDuringRewrites(file, blocks, 2000 + random.Below(10'000));
        ASSERT_EQ(file.Read().size(), kKeyFileSize);
        Bytes block(sizeof(KeyBlock));
        ASSERT_EQ(ReadKeyFileChunk(file.Path(), kHeader, block), KeyFileStatus::Done);
        ASSERT_TRUE(block == blocks[0] || block == blocks[1]);
        ++found[block == blocks[0] ? 0 : 1];
    }
    EXPECT_GT(found[0], 0); // the kills came at different moments
    EXPECT_GT(found[1], 0);
}

} // namespace
} // namespace quilla
