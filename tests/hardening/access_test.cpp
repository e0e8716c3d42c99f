// Who may reach a mounted volume, what the program loads, and what its memory may do.

#include "desktop/device_export.h"
#include "desktop/private_file.h"
#include "tests/hardening/memory_scan.h"
#include "tests/support/quilla_tarn.h"

#include <aclapi.h>
#include <algorithm>
#include <atomic>
#include <bit>
#include <regex>
#include <sddl.h>
#include <string>
#include <thread>

namespace quilla::test {
namespace {

constexpr std::wstring_view kDigits = L"97531";

class AccessTest : public testing::Test {
  protected:
    [[nodiscard]] QuillaTarn Mount(const wchar_t* currentFolder = nullptr) const {
        QuillaTarn program(L"mount \"" + std::wstring(record.Path) + L"\" /password " + std::wstring(kDigits),
                           currentFolder);
        EXPECT_TRUE(WaitUntil(IsMounted));
        return program;
    }

    void Dismount(const QuillaTarn& program) const {
        EXPECT_EQ(QuillaTarn(L"dismount \"" + std::wstring(record.Path) + L"\"").Wait(), 0U);
        EXPECT_EQ(program.Wait(), 0U) << "never shown, it ends with what it has mounted";
    }

    TemporaryFolder folder;
    const VolumeRecord record = CreateVolume(folder, CipherId::Twofish, kDigits);
};

/// Whether the rules of a file or folder let nobody in but its owner and the system itself, which may do
/// everything anyhow and which Wine puts into every list.
void ExpectOwnerOnly(std::wstring path) {
    constexpr SECURITY_INFORMATION kWanted = OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    wchar_t* text = nullptr;
    ASSERT_EQ(GetNamedSecurityInfoW(path.data(), SE_FILE_OBJECT, kWanted, nullptr, nullptr, nullptr, nullptr,
                                    &descriptor),
              DWORD{ERROR_SUCCESS});
    ASSERT_TRUE(ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor, SDDL_REVISION_1, kWanted,
                                                                     &text, nullptr));
    const std::wstring rules(text);
    LocalFree(text);
    LocalFree(descriptor);
    // The owner, then "(A;flags;rights;;;who)" once or more; no list at all would let everybody in.
    EXPECT_TRUE(
        std::regex_match(rules, std::wregex(L"O:(.+)D:[A-Z]*(\\(A;[A-Z]*;(;;;[^)]+|[^;]+;;;(SY|\\1))\\))+")))
        << std::string(rules.begin(), rules.end());
}

TEST_F(AccessTest, OnlyTheOwnerReadsTheAddressAndNobodyGuessesIt) {
    std::string names[2];
    for (std::string& name : names) {
        const QuillaTarn program = Mount();
        const std::wstring file = UriFile(0);
        ExpectOwnerOnly(file);
        ExpectOwnerOnly(file.substr(0, file.rfind(L'\\')));
        name = Address(ReadSmallFile(file).value_or("")).name;
        Dismount(program);
        EXPECT_FALSE(IsMounted());
    }
    // Two numbers of 128 bits from the system: a digit is the same by chance only.
    ASSERT_EQ(names[0].size(), 5U + 32U);
    int same = 0;
    for (std::size_t digit = 5; digit < names[0].size(); ++digit)
        same += names[0][digit] == names[1][digit];
    EXPECT_LT(same, 16) << names[0] << ' ' << names[1];
}

/// This process stands for the user's other session, which shares the folder of addresses.
TEST_F(AccessTest, AnotherSessionRemovesOnlyAddressesThatNobodyHolds) {
    const QuillaTarn program = Mount();
    EXPECT_TRUE(WaitUntil([] { return DeviceExport::IsElsewhere(0); }));
    PathText drive; // the script's, which nobody holds
    ASSERT_TRUE(WritePrivateFile(L"SEC0.drive", "Q:") && PrivatePath(L"SEC0.drive", drive));
    DeviceExport::RemoveLeftovers();
    EXPECT_NE(ReadSmallFile(UriFile(0)).value_or(""), "");
    EXPECT_TRUE(Exists(drive));
    TerminateProcess(program.Process(), 1);
    EXPECT_EQ(program.Wait(), 1U);
    EXPECT_TRUE(IsMounted()) << "a left-over";
    DeviceExport::RemoveLeftovers();
    EXPECT_FALSE(IsMounted() || Exists(drive));
}

TEST(PrivateFileTest, AnAddressThatIsJustBeingWrittenIsNoLeftover) {
    std::atomic<bool> isWritten = false;
    std::thread otherSession([&] {
        while (!isWritten)
            DeviceExport::RemoveLeftovers();
    });
    for (int i = 0; i < 200; ++i) {
        const UniqueFile held = WritePrivateFile(L"SEC0.uri", "address");
        EXPECT_TRUE(held && IsMounted()) << i;
    }
    isWritten = true;
    otherSession.join();
    DeviceExport::RemoveLeftovers();
}

/// Has a process load a library, as if its own code had asked for it. Returns whether it did.
bool LoadIn(HANDLE process, const std::wstring& name) {
    const std::size_t size = (name.size() + 1) * sizeof(wchar_t);
    void* const room = VirtualAllocEx(process, nullptr, size, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
    EXPECT_TRUE(WriteProcessMemory(process, room, name.c_str(), size, nullptr));
    // System libraries lie at the same place in all processes.
    const HANDLE thread = CreateRemoteThread(
        process, nullptr, 0, std::bit_cast<LPTHREAD_START_ROUTINE>(&LoadLibraryW), room, 0, nullptr);
    EXPECT_EQ(WaitForSingleObject(thread, 30'000), WAIT_OBJECT_0);
    DWORD lowHalf = 0;
    GetExitCodeThread(thread, &lowHalf);
    CloseHandle(thread);
    return lowHalf != 0;
}

/// Libraries that systems look for, often in vain, lie in the current folder, which is the volume's folder
/// too.
TEST_F(AccessTest, PlantedLibrariesAreNotLoaded) {
    const auto plant = [this](const std::wstring& name) {
        const std::wstring path = folder.File(name);
        EXPECT_TRUE(CopyFileW(WindowsPath(QUILLA_PLANTED_LIBRARY).c_str(), path.c_str(), FALSE));
        return path;
    };
    for (const wchar_t* const name :
         {L"profapi.dll", L"cryptbase.dll", L"edputil.dll", L"textshaping.dll", L"libwinpthread-1.dll"})
        plant(name);
    const QuillaTarn program = Mount(folder.File(L"").c_str());
    EXPECT_FALSE(Exists(folder.File(L"loaded")));
    // Nor would one be that lies nowhere else; the trap itself does work.
    const std::wstring only = plant(L"only-here.dll");
    EXPECT_FALSE(LoadIn(program.Process(), L"only-here.dll"));
    EXPECT_FALSE(Exists(folder.File(L"loaded")));
    EXPECT_TRUE(LoadIn(program.Process(), only));
    EXPECT_TRUE(Exists(folder.File(L"loaded")));
    Dismount(program);
}

TEST_F(AccessTest, NoMemoryIsWritableAndExecutable) {
    const QuillaTarn program = Mount();
    program.AwaitMainWindow();
    for (const auto& region : FindRegions(program.Process(), PAGE_EXECUTE_READWRITE | PAGE_EXECUTE_WRITECOPY))
        ADD_FAILURE() << region.BaseAddress;
    Dismount(program);
}

} // namespace
} // namespace quilla::test
