// Volumes as drives, with a program in the shell's place that records what it is given and answers as the
// scripts do: what Windows itself makes of it cannot be seen here.

#include "tests/ui/ui_fixture.h"
#include "ui/volume_drives.h"

#include <filesystem>
#include <fstream>
#include <iterator>

namespace quilla {
namespace {

using namespace test;
namespace fs = std::filesystem;

class DrivesTest : public UiTest {
  protected:
    DrivesTest() {
        wchar_t system[MAX_PATH];
        GetSystemDirectoryW(system, MAX_PATH);
        shellFolder = fs::path(system) / "WindowsPowerShell" / "v1.0";
        OpenMainWindow();
        path = AddVolume(L"a");
        MountRow(0);
        keys = ReadFile(fs::path(_wgetenv(L"LOCALAPPDATA")) / "Quilla Tarn" / "SEC0.iscsi");
    }
    ~DrivesTest() override {
        fs::remove_all(shellFolder);
        fs::rename(formerFolder, shellFolder, ignored);
    }

    /// Has the shell and its module for initiators, as Windows has.
    void InstallShell() {
        formerFolder = shellFolder.parent_path() / "former";
        fs::rename(shellFolder, formerFolder, ignored);
        fs::create_directories(shellFolder / "Modules" / "iSCSI");
        wchar_t program[MAX_PATH];
        GetModuleFileNameW(nullptr, program, MAX_PATH);
        fs::copy_file(fs::path(program).parent_path() / "powershell.exe", shellFolder / "powershell.exe");
    }

    static std::string ReadFile(const fs::path& file) {
        std::ifstream stream(file, std::ios::binary);
        return {std::istreambuf_iterator(stream), {}};
    }
    void Say(const std::string& answer) const {
        std::ofstream(shellFolder / "say", std::ios::binary) << answer;
    }

    /// The value of a key of the mounted target.
    [[nodiscard]] std::string Key(const std::string& name) const {
        const std::size_t begin = keys.find(name + "=") + name.size() + 1;
        return keys.substr(begin, keys.find('\n', begin) - begin);
    }

    /// Runs the program's loop, idle moments included, until the row's state is as wanted.
    void AwaitState(const std::wstring& wanted) {
        for (int i = 0; i < 1000 && Cell(0, 4) != wanted; ++i) {
            application.PumpPending();
            window->OnIdle();
            Sleep(10);
        }
        EXPECT_EQ(Cell(0, 4), wanted);
    }

    fs::path shellFolder, formerFolder;
    std::error_code ignored;
    std::wstring path;
    std::string keys;
};

TEST_F(DrivesTest, AttachesByAScriptThatIsToldNoSecretAndDetachesBeforeADismount) {
    InstallShell();
    Say("done E: F:");
    std::ofstream(shellFolder / "wait") << "a moment";
    Command(IDM_ATTACH_DRIVE);
    Command(IDM_ATTACH_DRIVE); // once is enough
    EXPECT_EQ(Cell(0, 4), L"Mounted as SEC0:, being attached");
    fs::remove(shellFolder / "wait");
    AwaitState(L"Mounted as SEC0:, attached as E: F:");
    const std::string seen = ReadFile(shellFolder / "seen");
    EXPECT_NE(seen.find(R"(\AttachDrive.ps1" -KeyFile ")"), std::string::npos) << seen;
    EXPECT_TRUE(seen.ends_with("\n" + keys)) << "the script can read the file";
    ASSERT_EQ(Key("secret").size(), 16U);
    EXPECT_EQ(seen.find(Key("secret")), seen.rfind(Key("secret"))) << "there, and nowhere else";

    Say("refused Windows keeps the drive E:. It is held by: editor.");
    MessageBoxWatcher boxes(IDCANCEL);
    Command(IDM_DISMOUNT);
    EXPECT_EQ(Cell(0, 4), L"Mounted as SEC0:, being detached");
    AwaitState(L"Mounted as SEC0:, attached as E: F:");
    const std::vector<SeenBox> asked = boxes.Take();
    ASSERT_EQ(asked.size(), 1U);
    EXPECT_TRUE(
        asked[0].text.starts_with(L"Windows keeps the drive E:. It is held by: editor.\n\nDismount all"));
    EXPECT_NE(ReadFile(shellFolder / "seen").find("DetachDrive.ps1"), std::string::npos);

    Say("done");
    Command(IDM_DISMOUNT_ALL);
    AwaitState(L"");
    MountRow(0);
    EXPECT_EQ(Cell(0, 4), L"Mounted as SEC0:") << "nothing is left of the drive that was";
}

TEST_F(DrivesTest, AttachesAfterMountingIfTheUserHasChosenSo) {
    InstallShell();
    Say("done");
    Command(IDM_DISMOUNT);
    AwaitState(L""); // on a busy machine the disk takes its time
    Command(IDM_ATTACH_AFTER_MOUNTING);
    EXPECT_TRUE(VolumeDrives::AttachesAfterMounting());
    MountRow(0);
    AwaitState(L"Mounted as SEC0:, attached");
    Say("refused no");
    MessageBoxWatcher boxes(IDOK);
    Command(IDM_DETACH_DRIVE);
    EXPECT_EQ(Cell(0, 4), L"Mounted as SEC0:, being detached");
    AwaitState(L"Mounted as SEC0:, attached");
    EXPECT_EQ(boxes.Take().at(0).text, L"no");
    Say("done");
    Command(IDM_DETACH_DRIVE);
    AwaitState(L"Mounted as SEC0:");
}

TEST_F(DrivesTest, TellsHowToAttachByHandWhereTheSystemCannot) {
    const std::string wanted = "iscsicli LoginTarget " + Key("target") + " T 127.0.0.1 " + Key("port") +
                               " * * * * * * * * * quilla " + Key("secret") + " 1 * 0\r\n";
    const auto look = InDialog([&] {
        EXPECT_NE(FieldTextOf(IDC_BY_HAND_LINES).find(std::wstring(wanted.begin(), wanted.end())),
                  std::wstring::npos)
            << wanted;
        Press(IDCANCEL);
    });
    fs::remove_all(shellFolder / "Modules");
    Command(IDM_ATTACH_DRIVE, {look});
    InstallShell(); // one that says nothing, like Wine's
    application.Play({look});
    Command(IDM_ATTACH_DRIVE);
    EXPECT_EQ(Cell(0, 4), L"Mounted as SEC0:, being attached");
    AwaitState(L"Mounted as SEC0:");
    EXPECT_TRUE(application.PlayedToTheEnd());
    fs::remove_all(shellFolder / "Modules");
    EXPECT_FALSE(VolumeDrives::CanAttach());
    std::ofstream(shellFolder / "wnbd-client.exe") << "a driver's client";
    const std::wstring searched = _wgetenv(L"PATH");
    SetEnvironmentVariableW(L"PATH", (searched + L";" + shellFolder.wstring()).c_str());
    EXPECT_TRUE(VolumeDrives::CanAttach());
    SetEnvironmentVariableW(L"PATH", searched.c_str());
}

} // namespace
} // namespace quilla
