// A process killed while it changes a volume's password leaves a key file that opens with the old or the new
// password and still holds the same master key.

#include "tests/support/scratch_file.h"
#include "volume/key_file.h"
#include "volume/sha1.h"

#include <chrono>
#include <cstdlib>
#include <gtest/gtest.h>
#include <random>
#include <thread>
#ifdef _WIN32
#include "platform/win32/handle.h"
#else
#include <csignal>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace quilla {
namespace {

using test::Bytes;
using test::ScratchFile;
using test::ToHex;

constexpr CipherId kCipher = CipherId::Twofish;
constexpr TextView kPasswords[] = {QUILLA_TEXT("first"), QUILLA_TEXT("second")};

bool Open(const PathUnit* path, TextView password, KeyBlock& block) {
    PasswordDigest key;
    PasswordKey(key, password);
    return ReadKeyFileChunk(path, KeyBlockHeader(kCipher), std::as_writable_bytes(std::span(&block, 1))) ==
               KeyFileStatus::Done &&
           OpenKeyBlock(block, kCipher, key);
}

/// Changes the password to and fro until the process is killed, or until something fails.
void ChangePasswordsForever(const PathUnit* path) {
    for (unsigned i = 0;; ++i) {
        KeyBlock block;
        PasswordDigest key;
        if (!Open(path, kPasswords[i % 2], block) && !Open(path, kPasswords[(i + 1) % 2], block))
            return;
        PasswordKey(key, kPasswords[(i + 1) % 2]);
        if (!SealKeyBlock(block, kCipher, key))
            return;
        // The test looks at the file meanwhile, so a refusal to share it is no failure.
        static_cast<void>(
            RewriteKeyFileChunk(path, KeyBlockHeader(kCipher), std::as_bytes(std::span(&block, 1))));
    }
}

#ifdef _WIN32

constexpr int kKills = 20;

/// This program once more, running the test below.
class Worker {
  public:
    explicit Worker(const PathUnit* path) {
        SetEnvironmentVariableW(L"QUILLA_REKEY_FILE", path);
        wchar_t self[MAX_PATH];
        GetModuleFileNameW(nullptr, self, MAX_PATH);
        std::wstring line =
            L"\"" + std::wstring(self) + L"\" --gtest_also_run_disabled_tests --gtest_filter=RekeyWorker.*";
        STARTUPINFOW startup{};
        startup.cb = sizeof(startup);
        startup.dwFlags = STARTF_USESTDHANDLES; // silent
        PROCESS_INFORMATION started{};
        if (CreateProcessW(self, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                           &started)) {
            process_.Reset(started.hProcess);
            CloseHandle(started.hThread);
        }
    }
    void Kill() {
        EXPECT_EQ(WaitForSingleObject(process_.Get(), 0), static_cast<DWORD>(WAIT_TIMEOUT))
            << "ended by itself";
        TerminateProcess(process_.Get(), 1);
        WaitForSingleObject(process_.Get(), INFINITE);
    }

  private:
    UniqueProcess process_;
};

TEST(RekeyWorker, DISABLED_ChangesPasswordsUntilKilled) {
    wchar_t path[MAX_PATH];
    ASSERT_NE(GetEnvironmentVariableW(L"QUILLA_REKEY_FILE", path, MAX_PATH), 0U);
    ChangePasswordsForever(path);
}

#else

constexpr int kKills = 50;

class Worker {
  public:
    explicit Worker(const PathUnit* path) : process_(fork()) {
        if (process_ == 0) {
            ChangePasswordsForever(path);
            _exit(1);
        }
    }
    void Kill() {
        ASSERT_GT(process_, 0);
        EXPECT_EQ(waitpid(process_, nullptr, WNOHANG), 0) << "ended by itself";
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }

  private:
    pid_t process_;
};

#endif

/// Waits for the worker's first change.
void WaitForChange(const ScratchFile& file, const Bytes& before) {
    for (int tries = 0; tries < 10'000; ++tries) {
        const Bytes now = file.Read();
        if (now.size() == before.size() && now != before)
            return;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    FAIL() << "no password was changed";
}

TEST(Rekeying, SurvivesBeingKilled) {
    const ScratchFile file(".key");
    VolumeRecord record{};
    record.Cipher = kCipher;
    PasswordDigest key;
    PasswordKey(key, kPasswords[0]);
    ASSERT_EQ(CreateKeyFile(file.Path(), record, key), KeyFileStatus::Done);
    KeyBlock original;
    ASSERT_TRUE(Open(file.Path(), kPasswords[0], original));

    std::mt19937 random(20);
    int opened[2] = {};
    for (int i = 0; i < kKills; ++i) {
        const Bytes before = file.Read();
        Worker worker(file.Path());
        WaitForChange(file, before);
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 10'000));
        worker.Kill();
        ASSERT_EQ(file.Read().size(), kKeyFileSize);
        KeyBlock block;
        const bool first = Open(file.Path(), kPasswords[0], block);
        ASSERT_TRUE(first || Open(file.Path(), kPasswords[1], block)) << "opens with neither password";
        EXPECT_EQ(ToHex(block.masterKey), ToHex(original.masterKey));
        ++opened[first ? 0 : 1];
    }
    EXPECT_GT(opened[0], 0); // the kills came at different moments
    EXPECT_GT(opened[1], 0);
}

} // namespace
} // namespace quilla
