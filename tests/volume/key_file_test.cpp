// Key files on a file system that fails, is killed or says that a file is huge. Damaged and hostile content
// is fuzz/key_file_fuzz.cpp's.

#include "tests/support/key_file_builder.h"
#include "tests/support/scratch_file.h"
#include "volume/key_file.h"

#include <chrono>
#include <gtest/gtest.h>
#ifndef _WIN32
#include "tests/support/file_size_limit.h"
#include "tests/support/random_bytes.h"

#include <csignal>
#include <set>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#endif

namespace quilla {
namespace {

using test::BuildKeyFile;
using test::Bytes;
using test::ScratchFile;

constexpr std::uint64_t kTimeout = 18'000'000'000;
const ChunkHeader kCastBlock = KeyBlockHeader(CipherId::Cast128);
const Bytes kBlock(152, std::byte{0xC7});

TEST(KeyFile, ATebibyteOfEmptyChunksKeepsNobodyBusy) {
    const ScratchFile file(".key");
    if (!File::Open(file.Path(), FileAccess::Write, FileSharing::None, FileCreation::CreateNew)
             .SetSize(1ULL << 40))
        GTEST_SKIP() << "no sparse files here";
    const auto start = std::chrono::steady_clock::now();
    Bytes payload(152);
    EXPECT_EQ(LoadChunk(file.Path(), kCastBlock, payload), KeyFileStatus::UnknownFormat);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

TEST(KeyFile, NeverHoldsAPlainKeyNorReplacesAnother) {
    const ScratchFile file(".key");
    VolumeRecord record{};
    record.Timeout = kTimeout;
    for (const std::uint32_t number : {5U, 11U, 0x10006U}) { // no ciphers
        record.Cipher = CipherId{number};
        EXPECT_EQ(CreateKeyFile(file.Path(), record, PasswordDigest{}), KeyFileStatus::UnknownFormat);
        EXPECT_FALSE(file.Exists());
    }
    record.Cipher = CipherId::None;
    ASSERT_EQ(CreateKeyFile(file.Path(), record, PasswordDigest{}), KeyFileStatus::Done);
    EXPECT_EQ(CreateKeyFile(file.Path(), record, PasswordDigest{}), KeyFileStatus::CannotCreate);
    EXPECT_EQ(file.Read(), BuildKeyFile(0, kTimeout, 0, {}));
}

#ifndef _WIN32

TEST(KeyFile, ReadsAndWritesThatFailAreTold) {
    VolumeRecord record{};
    EXPECT_EQ(LoadSummary("/proc/self/mem", record), KeyFileStatus::CannotRead); // nothing is mapped at 0
    record.Cipher = CipherId::Twofish;
    for (const rlim_t size : {0U, 100U, 759U}) {
        const ScratchFile file(".key");
        const test::FileSizeLimit limit(size);
        EXPECT_EQ(CreateKeyFile(file.Path(), record, PasswordDigest{}), KeyFileStatus::CannotWrite) << size;
    }
    const ScratchFile file(".key");
    file.Write(BuildKeyFile(6, kTimeout, 0, kBlock));
    const test::FileSizeLimit limit(72);
    EXPECT_EQ(StoreChunk(file.Path(), kCastBlock, kBlock), KeyFileStatus::CannotWrite);
}

/// Rewrites the key block over and over in a process of its own, which is killed a while after the first
/// time.
void KillDuringRewrites(const ScratchFile& file, std::span<const Bytes> blocks, std::uint32_t microseconds) {
    int begun[2];
    ASSERT_EQ(pipe(begun), 0);
    const pid_t worker = fork();
    if (worker == 0) {
        for (std::size_t i = 0;
             StoreChunk(file.Path(), kCastBlock, blocks[i % blocks.size()]) == KeyFileStatus::Done; ++i)
            if (i == 0)
                close(begun[1]);
        _exit(1);
    }
    close(begun[1]);
    char nothing = 0;
    EXPECT_EQ(read(begun[0], &nothing, 1), 0);
    close(begun[0]);
    ASSERT_GT(worker, 0);
    std::this_thread::sleep_for(std::chrono::microseconds(microseconds));
    EXPECT_EQ(waitpid(worker, nullptr, WNOHANG), 0) << "ended by itself";
    kill(worker, SIGKILL);
    waitpid(worker, nullptr, 0);
}

/// What is left is the old key block or the new one, never a mixture that opens with neither password.
TEST(KeyFile, SurvivesAProcessKilledWhileItRewrites) {
    test::RandomBytes random(20);
    const Bytes blocks[] = {random.Make(sizeof(KeyBlock)), random.Make(sizeof(KeyBlock))};
    const ScratchFile file(".key");
    file.Write(BuildKeyFile(6, kTimeout, 0, blocks[0]));
    std::set<Bytes> found;
    for (int i = 0; i < 50; ++i) {
        KillDuringRewrites(file, blocks, 2000 + random.Below(10'000));
        ASSERT_EQ(file.Read().size(), kKeyFileSize);
        Bytes block(sizeof(KeyBlock));
        ASSERT_EQ(LoadChunk(file.Path(), kCastBlock, block), KeyFileStatus::Done);
        found.insert(block);
    }
    EXPECT_EQ(found,
              std::set(std::begin(blocks), std::end(blocks))); // both: the kills differ in their moments
}

#endif

} // namespace
} // namespace quilla
