// The built program from outside: real processes, their exit codes, boxes and windows, and volumes mounted by
// command lines.

#include "tests/driver/device_fixture.h"
#include "tests/nbd/nbd_client.h"
#include "tests/support/memory_scan.h"
#include "tests/support/message_box_watcher.h"
#include "tests/support/process_size.h"
#include "tests/support/program.h"
#include "volume/sha1.h"
#include "volume/volume_files.h"
#include "volume/volume_password.h"

namespace quilla {
namespace {

using test::MessageBoxWatcher;
using test::Program;
using test::WaitUntil;

constexpr DWORD kWrongPassword = static_cast<DWORD>(-1);
constexpr std::uint64_t kSecond = 10'000'000;

class ProgramTest : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(FindWindowW(L"BWindow", L"Quilla Tarn"), nullptr) << "another instance runs in this prefix";
    }

    static Program Start(const std::wstring& commandLine) { return Program(QUILLA_PROGRAM, commandLine); }

    /// Runs one command to its end; returns the exit code.
    static DWORD Run(const std::wstring& commandLine) { return Start(commandLine).Wait(); }

    /// Starts the serving instance with a command or without one; it is ready on return.
    static Program Serve(const std::wstring& commandLine) {
        Program program = Start(commandLine);
        EXPECT_TRUE(WaitUntil([&] { return program.MainWindow() != nullptr || program.HasEnded(); }));
        return program;
    }

    static bool EndsOnClose(const Program& program) {
        PostMessageW(program.MainWindow(), WM_CLOSE, 0, 0);
        return program.Wait(10'000) == 0;
    }

    /// Creates a volume with the password "Straße 9" and returns its path.
    std::wstring MakeVolume(const std::wstring& name, CipherId cipher = CipherId::Twofish,
                            std::uint64_t timeout = 0) const {
        VolumeRecord record{};
        CopyText(record.Path, folder_.File(name + L".raw"));
        CopyText(record.KeyPath, folder_.File(name + L".key"));
        record.Size = 64 * 1024;
        record.Cipher = cipher;
        record.Timeout = timeout;
        PasswordDigest passwordKey;
        PasswordKey(passwordKey, TextView(L"Straße 9"));
        EXPECT_TRUE(BuildVolumeFiles(record, passwordKey));
        return record.Path;
    }

    static std::wstring MountLine(const std::wstring& path) {
        return L"mount \"" + path + L"\" /password \"Straße 9\"";
    }
    static std::wstring DismountLine(const std::wstring& path) { return L"DISMOUNT \"" + path + L"\""; }

    static bool IsExported(unsigned index) { return test::ReadSmallFile(test::UriFile(index)).has_value(); }

    test::TemporaryFolder folder_;
};

TEST_F(ProgramTest, FirstInstanceAnswersAMalformedLineAndEnds) {
    Program program = Start(L"mount a b c d e");
    MessageBoxWatcher boxes(0, program.Id());
    ASSERT_TRUE(boxes.WaitForBox());
    const auto seen = boxes.Take();
    EXPECT_EQ(seen[0].caption, L"Quilla Tarn");
    EXPECT_EQ(seen[0].text, L"Incorrect command line format\n\n"
                            L"mount\t[/volume] VolumeFile.raw [/key KeyFile.key] [/password 97531]\n"
                            L"dismount\t[/volume] VolumeFile.raw");
    EXPECT_EQ(program.Wait(), 0U);
}

TEST_F(ProgramTest, ASecondInstanceShowsTheFirstOne) {
    Program program = Serve(L"");
    ASSERT_TRUE(WaitUntil([&] { return IsWindowVisible(program.MainWindow()); }));
    ShowWindow(program.MainWindow(), SW_HIDE);
    static_cast<void>(Run(L""));
    EXPECT_TRUE(IsWindowVisible(program.MainWindow()));

    Program malformed = Start(L"/nonsense");
    MessageBoxWatcher boxes(0, malformed.Id());
    EXPECT_EQ(malformed.Wait(), 1U);
    EXPECT_EQ(boxes.Take().size(), 1U);
    EXPECT_TRUE(EndsOnClose(program));
}

TEST_F(ProgramTest, MountsHiddenAndLivesUntilTheLastDismount) {
    const std::wstring path = MakeVolume(L"My volume");
    DeleteFileW(test::UriFile(0).c_str());
    Program program = Serve(MountLine(path));
    ASSERT_TRUE(WaitUntil([] { return IsExported(0); }));
    {
        const test::Address address(*test::ReadSmallFile(test::UriFile(0)));
        test::NbdClient client(address.port);
        ASSERT_TRUE(client.Enter(address.name));
        EXPECT_EQ(client.Write(0, test::Bytes(4096, 0x77)), test::kOk);
        EXPECT_EQ(client.Read(0, 4096), test::Bytes(4096, 0x77));
    }
    EXPECT_FALSE(IsWindowVisible(program.MainWindow()));
    SendMessageW(program.MainWindow(), WM_CLOSE, 0, 0);
    EXPECT_FALSE(program.HasEnded()) << "closing must hide while a volume is mounted";
    EXPECT_EQ(Run(DismountLine(path)), 0U);
    EXPECT_FALSE(IsExported(0));
    EXPECT_EQ(Run(DismountLine(path)), 0U) << "not mounted: nothing to do";
    EXPECT_FALSE(program.HasEnded());
    EXPECT_TRUE(EndsOnClose(program));
}

TEST_F(ProgramTest, ASecondInstanceMountsInTheFirst) {
    const std::wstring paths[] = {MakeVolume(L"a", CipherId::Cast128), MakeVolume(L"b"), MakeVolume(L"c")};
    Program program = Serve(L"");
    for (unsigned i = 0; i < 3; ++i) {
        EXPECT_EQ(Run(MountLine(paths[i])), 0U);
        EXPECT_TRUE(IsExported(i));
    }
    const auto uri = test::ReadSmallFile(test::UriFile(0));
    EXPECT_EQ(Run(MountLine(paths[0])), 0U) << "mounted already: ignored";
    EXPECT_EQ(test::ReadSmallFile(test::UriFile(0)), uri);
    EXPECT_FALSE(IsExported(3));
    EXPECT_EQ(Run(DismountLine(paths[1])), 0U);
    EXPECT_FALSE(IsExported(1));
    EXPECT_EQ(Run(MountLine(paths[1])), 0U);
    EXPECT_TRUE(IsExported(1));
    for (const std::wstring& path : paths)
        EXPECT_EQ(Run(DismountLine(path)), 0U);
    EXPECT_TRUE(EndsOnClose(program));
}

TEST_F(ProgramTest, RefusesAWrongPassword) {
    const std::wstring path = MakeVolume(L"a");
    Program program = Serve(L"");
    Program wrong = Start(L"mount \"" + path + L"\" /password \"strasse 9\"");
    MessageBoxWatcher boxes(0, wrong.Id());
    EXPECT_EQ(wrong.Wait(), kWrongPassword);
    const auto seen = boxes.Take();
    ASSERT_EQ(seen.size(), 1U);
    EXPECT_EQ(seen[0].caption, L"Quilla Tarn Error");
    EXPECT_EQ(seen[0].text, L"Incorrect password");
    EXPECT_FALSE(IsExported(0));
    EXPECT_TRUE(EndsOnClose(program));
}

/// Without a password the second process shows the dialog, which has no window of the first one around it.
TEST_F(ProgramTest, ASecondInstanceAsksForThePassword) {
    const std::wstring path = MakeVolume(L"a");
    Program program = Serve(L"");
    for (const bool isConfirmed : {false, true}) {
        Program asking = Start(L"mount \"" + path + L"\"");
        HWND dialog = nullptr;
        ASSERT_TRUE(WaitUntil([&] {
            dialog = FindWindowW(L"#32770", L"Mount");
            DWORD owner = 0;
            GetWindowThreadProcessId(dialog, &owner);
            return owner == asking.Id() && IsWindowVisible(dialog);
        }));
        ASSERT_NE(GetDlgItem(dialog, 112), nullptr);
        SendMessageW(GetDlgItem(dialog, 112), WM_SETTEXT, 0, reinterpret_cast<LPARAM>(L"Straße 9"));
        PostMessageW(dialog, WM_COMMAND, isConfirmed ? IDOK : IDCANCEL, 0);
        EXPECT_EQ(asking.Wait(), 0U);
        EXPECT_EQ(IsExported(0), isConfirmed);
    }
    EXPECT_EQ(Run(DismountLine(path)), 0U);
    EXPECT_TRUE(EndsOnClose(program));
}

/// A lost key file makes a file error first; the wrong data then cannot match.
TEST_F(ProgramTest, ReportsALostKeyFileAndThenThePassword) {
    const std::wstring path = MakeVolume(L"a");
    DeleteFileW(folder_.File(L"a.key").c_str());
    Program program = Serve(L"");
    Program lost = Start(MountLine(path));
    MessageBoxWatcher boxes(0, lost.Id());
    EXPECT_EQ(lost.Wait(), kWrongPassword);
    const auto seen = boxes.Take();
    ASSERT_EQ(seen.size(), 2U);
    EXPECT_EQ(seen[0].caption, L"Quilla Error");
    EXPECT_TRUE(seen[0].text.starts_with(L"Cannot open file "))
        << "the list has dropped the missing key file";
    EXPECT_EQ(seen[1].text, L"Incorrect password");
    EXPECT_TRUE(EndsOnClose(program));
}

TEST_F(ProgramTest, WakesUpToDismountWhatIsDue) {
    const std::wstring due = MakeVolume(L"due", CipherId::Cast128, 16 * kSecond);
    const std::wstring later = MakeVolume(L"later", CipherId::Cast128, 90 * kSecond);
    Program program = Serve(L"");
    EXPECT_EQ(Run(MountLine(due)), 0U);
    EXPECT_EQ(Run(MountLine(later)), 0U);
    std::this_thread::sleep_for(std::chrono::milliseconds(1200)); // idle for 16 seconds less the slack of 15
    EXPECT_EQ(Run(L"AppRunAtTime"), 0U);
    EXPECT_FALSE(IsExported(0));
    EXPECT_TRUE(IsExported(1));
    EXPECT_EQ(Run(DismountLine(later)), 0U);
    EXPECT_TRUE(EndsOnClose(program));
}

TEST_F(ProgramTest, ClearsUpAfterAProcessThatWasKilled) {
    const std::wstring path = MakeVolume(L"a");
    {
        Program program = Serve(MountLine(path));
        ASSERT_TRUE(WaitUntil([] { return IsExported(0); }));
        TerminateProcess(program.Process(), 99);
        EXPECT_EQ(program.Wait(), 99U);
    }
    EXPECT_TRUE(IsExported(0)) << "nobody is left to remove the file";
    Program program = Serve(L"");
    EXPECT_TRUE(WaitUntil([] { return !IsExported(0); }));
    EXPECT_EQ(Run(MountLine(path)), 0U);
    EXPECT_TRUE(IsExported(0));
    EXPECT_EQ(Run(DismountLine(path)), 0U);
    EXPECT_TRUE(EndsOnClose(program));
}

TEST_F(ProgramTest, AnInstanceThatStartsWhileAnotherClosesTakesOver) {
    for (int i = 0; i < 5; ++i) {
        Program first = Serve(L"");
        PostMessageW(first.MainWindow(), WM_CLOSE, 0, 0);
        Program second = Serve(L"");
        EXPECT_EQ(first.Wait(10'000), 0U);
        if (second.HasEnded()) // it came early enough to find the first one's window
            continue;
        ASSERT_TRUE(WaitUntil([&] { return second.MainWindow() != nullptr; }));
        EXPECT_TRUE(EndsOnClose(second));
    }
}

/// Looks for what must be gone in the memory of the instance that mounted by its own command line.
TEST_F(ProgramTest, LeavesNoSecretInMemory) {
    for (const CipherId cipher : {CipherId::Cast128, CipherId::Twofish}) {
        VolumeRecord record{};
        CopyText(record.Path, MakeVolume(L"secret" + std::to_wstring(static_cast<unsigned>(cipher)), cipher));
        CopyText(record.KeyPath,
                 std::wstring(record.Path).replace(std::wstring(record.Path).size() - 3, 3, L"key"));
        record.Cipher = cipher;
        PasswordDigest passwordKey;
        PasswordKey(passwordKey, TextView(L"Straße 9"));
        const PasswordDigest keyOfPassword = passwordKey;
        ASSERT_TRUE(UnlockVolume(record, passwordKey));
        const std::span<const std::byte> wide = std::as_bytes(std::span(L"Straße 9", 8));
        const std::span<const std::byte> narrow = std::as_bytes(std::span("Stra\xDF"
                                                                          "e 9",
                                                                          8));
        const std::span<const std::byte> utf8 = std::as_bytes(std::span("Stra\xC3\x9F"
                                                                        "e 9",
                                                                        9));

        const Program program = Serve(MountLine(record.Path));
        ASSERT_TRUE(WaitUntil([] { return IsExported(0); }));
        ASSERT_TRUE(WaitUntil([&] { return SendMessageW(program.MainWindow(), WM_NULL, 0, 0) == 0; }));
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        for (const bool isMounted : {true, false}) {
            const test::MemorySnapshot memory(program.Process());
            EXPECT_GT(memory.Count(std::as_bytes(std::span(L"QuillaDriver", 12))), 0)
                << "the search finds what is there";
            EXPECT_EQ(memory.Count(wide), 0) << isMounted;
            EXPECT_EQ(memory.Count(narrow), 0) << isMounted;
            EXPECT_EQ(memory.Count(utf8), 0) << isMounted;
            EXPECT_EQ(memory.Count(keyOfPassword), 0) << isMounted;
            EXPECT_EQ(memory.Count(record.Key), 0) << isMounted;
            EXPECT_EQ(memory.Count(std::span(record.Key).first(16)), 0) << isMounted;
            EXPECT_EQ(memory.Count(std::span(record.Key).last(16)), 0) << isMounted;
            if (isMounted) {
                EXPECT_EQ(Run(DismountLine(record.Path)), 0U);
            }
        }
        EXPECT_TRUE(EndsOnClose(program));
    }
}

/// How often DoesNotGrow mounts and dismounts: two processes each time, half a second each under Wine.
int CountCycles() {
    const wchar_t* const text = _wgetenv(L"QUILLA_TEST_CYCLES");
    return text != nullptr ? _wtoi(text) : 30;
}

TEST_F(ProgramTest, DoesNotGrow) {
    const std::wstring path = MakeVolume(L"a", CipherId::Cast128);
    Program program = Serve(L"");
    const auto mountOnce = [&] {
        ASSERT_EQ(Run(MountLine(path)), 0U);
        ASSERT_TRUE(IsExported(0));
        ASSERT_EQ(Run(DismountLine(path)), 0U);
        ASSERT_FALSE(IsExported(0));
    };
    for (int i = 0; i < 10; ++i)
        mountOnce();
    const test::ProcessSize before = test::MeasureProcess(program.Process());
    for (int i = CountCycles(); i > 0; --i)
        mountOnce();
    const test::ProcessSize after = test::MeasureProcess(program.Process());
    EXPECT_LE(after.handles, before.handles) << before << " / " << after;
    EXPECT_LE(after.threads, before.threads) << before << " / " << after;
    EXPECT_LE(after.windowObjects, before.windowObjects) << before << " / " << after;
    EXPECT_LE(after.drawingObjects, before.drawingObjects) << before << " / " << after;
    EXPECT_LE(after.committedBytes, before.committedBytes + 256 * 1024) << before << " / " << after;
    EXPECT_TRUE(EndsOnClose(program));
}

} // namespace
} // namespace quilla
