// What the end of one instance leaves to the next, and how one is started: real processes of the built
// program.

#include "tests/support/quilla_tarn.h"

#include <algorithm>
#include <vector>

namespace quilla {
namespace {

using test::QuillaTarn;
using test::WaitUntil;

TEST(ProgramTest, AnInstanceThatStartsWhileAnotherClosesTakesOver) {
    const QuillaTarn first(L"");
    first.AwaitMainWindow();
    // Held open, the event outlives the first instance, as it does for another one that waits for it already.
    const UniqueEvent event(OpenEventW(SYNCHRONIZE | EVENT_MODIFY_STATE, FALSE, L"Orvane Quilla Tarn"));
    ASSERT_TRUE(event);
    first.Close();
    EXPECT_EQ(WaitForSingleObject(event.Get(), 0), WAIT_OBJECT_0) << "who waits for it would wait for ever";
    // As if it had not ended yet: it serves until its end, and sets the event before.
    const UniqueMutex served(CreateMutexW(nullptr, TRUE, L"Orvane Quilla Tarn Serving"));
    ResetEvent(event.Get());
    std::vector<QuillaTarn> next;
    for (int i = 0; i < 4; ++i)
        next.emplace_back(L"");
    std::this_thread::sleep_for(std::chrono::seconds(1)); // most of them wait by then
    SetEvent(event.Get());
    ReleaseMutex(served.Get());
    EXPECT_TRUE(WaitUntil([&] { return std::ranges::count_if(next, &QuillaTarn::HasEnded) == 3; }));
    const auto serving = std::ranges::find_if_not(next, &QuillaTarn::HasEnded);
    ASSERT_NE(serving, next.end());
    serving->Close();
}

TEST(ProgramTest, TheProgramsNameMayBeQuotedInPart) {
    const std::wstring path = test::WindowsPath(QUILLA_PROGRAM);
    std::wstring line = L"\"" + path + L"\tdismount nothing.raw";
    line.insert(path.rfind(L'\\') + 1, L"\"");
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION started{};
    ASSERT_TRUE(CreateProcessW(path.c_str(), line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                               &startup, &started));
    const UniqueProcess process(started.hProcess);
    CloseHandle(started.hThread);
    EXPECT_EQ(WaitForSingleObject(process.Get(), 20'000), WAIT_OBJECT_0) << "it shows a box or its window";
    TerminateProcess(process.Get(), 1);
}

} // namespace
} // namespace quilla
