// What the end of one instance leaves to the next: real processes of the built program.

#include "tests/support/program.h"

#include "tests/driver/device_fixture.h"
#include "volume/sha1.h"
#include "volume/volume_files.h"

#include <algorithm>
#include <vector>

namespace quilla {
namespace {

using test::Program;
using test::WaitUntil;

/// Starts an instance that serves; it is ready on return, or has found another one and ended.
Program Serve(const std::wstring& commandLine = L"") {
    Program program(QUILLA_PROGRAM, commandLine);
    EXPECT_TRUE(WaitUntil([&] { return program.MainWindow() != nullptr || program.HasEnded(); }));
    return program;
}

void ExpectEndOnClose(const Program& program) {
    PostMessageW(program.MainWindow(), WM_CLOSE, 0, 0);
    EXPECT_EQ(program.Wait(10'000), 0U);
}

bool IsExported() {
    return test::ReadSmallFile(test::UriFile(0)).has_value();
}

TEST(ProgramTest, ClearsUpAfterAProcessThatWasKilled) {
    const test::TemporaryFolder folder;
    VolumeRecord volume{};
    CopyText(volume.Path, folder.File(L"a.raw"));
    CopyText(volume.KeyPath, folder.File(L"b.key"));
    volume.Size = 64 * 1024;
    volume.Cipher = CipherId::Cast128;
    PasswordDigest passwordKey;
    PasswordKey(passwordKey, TextView(L"Straße 9"));
    ASSERT_TRUE(BuildVolumeFiles(volume, passwordKey));
    const std::wstring path = L"\"" + std::wstring(volume.Path) + L"\"";
    const std::wstring mountLine = L"mount " + path + L" \"" + volume.KeyPath + L"\" /password \"Straße 9\"";
    {
        const Program killed = Serve(mountLine);
        ASSERT_TRUE(WaitUntil(IsExported));
        TerminateProcess(killed.Process(), 99);
        EXPECT_EQ(killed.Wait(), 99U);
    }
    EXPECT_TRUE(IsExported()) << "nobody is left to remove the file";
    const Program program = Serve();
    EXPECT_TRUE(WaitUntil([] { return !IsExported(); }));
    // A relative path means a file of the sender's current folder.
    EXPECT_EQ(
        Program(QUILLA_PROGRAM, L"mount a.raw b.key /password \"Straße 9\"", folder.File(L"").c_str()).Wait(),
        0U);
    EXPECT_TRUE(IsExported());
    EXPECT_EQ(Program(QUILLA_PROGRAM, L"dismount " + path).Wait(), 0U);
    ExpectEndOnClose(program);
}

TEST(ProgramTest, AnInstanceThatStartsWhileAnotherClosesTakesOver) {
    const Program first = Serve();
    // Held open, the event outlives the first instance, as it does for another one that waits for it already.
    const UniqueEvent event(OpenEventW(SYNCHRONIZE | EVENT_MODIFY_STATE, FALSE, L"Orvane Quilla Tarn"));
    ASSERT_TRUE(event);
    ExpectEndOnClose(first);
    ResetEvent(event.Get()); // as if it had not ended yet
    std::vector<Program> next;
    for (int i = 0; i < 4; ++i)
        next.emplace_back(QUILLA_PROGRAM, L"");
    std::this_thread::sleep_for(std::chrono::seconds(1)); // all of them wait by then
    SetEvent(event.Get());
    EXPECT_TRUE(WaitUntil([&] { return std::ranges::count_if(next, &Program::HasEnded) == 3; }));
    const auto serving = std::ranges::find_if_not(next, &Program::HasEnded);
    ASSERT_NE(serving, next.end());
    ExpectEndOnClose(*serving);
}

} // namespace
} // namespace quilla
