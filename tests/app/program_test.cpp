// What the end of one instance leaves to the next: real processes of the built program.

#include "tests/support/quilla_tarn.h"

#include <algorithm>
#include <vector>

namespace quilla {
namespace {

using test::IsMounted;
using test::QuillaTarn;
using test::WaitUntil;

TEST(ProgramTest, ClearsUpAfterAProcessThatWasKilled) {
    const std::wstring password = L"Straße 9";
    const test::TemporaryFolder folder;
    test::CreateVolume(folder, CipherId::Cast128, password);
    // A relative path means a file of the sender's current folder.
    const auto run = [&folder](const std::wstring& line) {
        return QuillaTarn(line, folder.File(L"").c_str());
    };
    const std::wstring mount = L"mount mine.raw mine.key /password \"" + password + L"\"";
    {
        const QuillaTarn killed = run(mount);
        ASSERT_TRUE(WaitUntil(IsMounted));
        TerminateProcess(killed.Process(), 99);
        EXPECT_EQ(killed.Wait(), 99U);
    }
    EXPECT_TRUE(IsMounted()) << "nobody is left to remove the file";
    const QuillaTarn program(L"");
    program.AwaitMainWindow();
    EXPECT_FALSE(IsMounted());
    EXPECT_EQ(run(mount).Wait(), 0U);
    EXPECT_TRUE(IsMounted());
    EXPECT_EQ(run(L"dismount mine.raw").Wait(), 0U);
    program.Close();
}

TEST(ProgramTest, AnInstanceThatStartsWhileAnotherClosesTakesOver) {
    const QuillaTarn first(L"");
    first.AwaitMainWindow();
    // Held open, the event outlives the first instance, as it does for another one that waits for it already.
    const UniqueEvent event(OpenEventW(SYNCHRONIZE | EVENT_MODIFY_STATE, FALSE, L"Orvane Quilla Tarn"));
    ASSERT_TRUE(event);
    first.Close();
    ResetEvent(event.Get()); // as if it had not ended yet
    std::vector<QuillaTarn> next;
    for (int i = 0; i < 4; ++i)
        next.emplace_back(L"");
    std::this_thread::sleep_for(std::chrono::seconds(1)); // all of them wait by then
    SetEvent(event.Get());
    EXPECT_TRUE(WaitUntil([&] { return std::ranges::count_if(next, &QuillaTarn::HasEnded) == 3; }));
    const auto serving = std::ranges::find_if_not(next, &QuillaTarn::HasEnded);
    ASSERT_NE(serving, next.end());
    serving->Close();
}

} // namespace
} // namespace quilla
