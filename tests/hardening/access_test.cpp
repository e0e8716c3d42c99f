// Who may reach a mounted volume, what the program loads, and what its memory may do.

#include "tests/hardening/memory_scan.h"
#include "tests/hardening/program.h"
#include "volume/sha1.h"
#include "volume/volume_files.h"

#include <aclapi.h>
#include <algorithm>
#include <bit>
#include <fstream>
#include <psapi.h>
#include <sstream>
#include <string>

namespace quilla::test {
namespace {

constexpr std::wstring_view kPassword = L"97531";

class AccessTest : public testing::Test {
  protected:
    void SetUp() override {
        CopyText(record.Path, folder.File(L"mine.raw"));
        CopyText(record.KeyPath, folder.File(L"mine.key"));
        record.Size = 1 << 20;
        record.Cipher = CipherId::Twofish;
        PasswordDigest key;
        PasswordKey(key, kPassword);
        ASSERT_TRUE(BuildVolumeFiles(record, key));
    }

    [[nodiscard]] std::wstring MountLine() const {
        return L"mount \"" + std::wstring(record.Path) + L"\" /password " + std::wstring(kPassword);
    }

    void Dismount(const QuillaTarn& program) {
        EXPECT_EQ(QuillaTarn(L"dismount \"" + std::wstring(record.Path) + L"\"").Wait(), 0U);
        PostMessageW(program.AwaitMainWindow(), WM_CLOSE, 0, 0);
        EXPECT_EQ(program.Wait(), 0U);
    }

    TemporaryFolder folder;
    VolumeRecord record{};
};

/// The rules of a file or folder: how many there are, and whether all of them are about the current user (or
/// the system itself, which may do everything anyhow and which Wine puts into every list).
struct Rules {
    DWORD count = 0;
    bool areOwn = true;
};

Rules ReadRules(std::wstring path) {
    HANDLE token = nullptr;
    OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token);
    alignas(TOKEN_USER) std::byte user[256];
    DWORD size = 0;
    EXPECT_TRUE(GetTokenInformation(token, TokenUser, user, sizeof(user), &size));
    CloseHandle(token);
    PSID const me = reinterpret_cast<const TOKEN_USER*>(user)->User.Sid;

    Rules rules;
    ACL* list = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    EXPECT_EQ(GetNamedSecurityInfoW(path.data(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                                    &list, nullptr, &descriptor),
              static_cast<DWORD>(ERROR_SUCCESS));
    EXPECT_NE(list, nullptr) << "no list at all lets everybody in";
    for (DWORD i = 0; list != nullptr && i < list->AceCount; ++i) {
        void* entry = nullptr;
        GetAce(list, i, &entry);
        const auto& allowed = *static_cast<const ACCESS_ALLOWED_ACE*>(entry);
        ++rules.count;
        PSID const sid = const_cast<DWORD*>(&allowed.SidStart);
        rules.areOwn = rules.areOwn &&
                       (EqualSid(sid, me) || IsWellKnownSid(sid, WinLocalSystemSid) || allowed.Mask == 0);
    }
    LocalFree(descriptor);
    return rules;
}

TEST_F(AccessTest, OnlyTheOwnerReadsTheAddress) {
    const QuillaTarn program(MountLine());
    ASSERT_TRUE(WaitUntil([] { return Exists(UriFile(0)); }));
    const std::wstring file = UriFile(0);
    for (const std::wstring& path : {file, file.substr(0, file.rfind(L'\\'))}) {
        const Rules rules = ReadRules(path);
        EXPECT_GT(rules.count, 0U);
        EXPECT_TRUE(rules.areOwn) << std::string(path.begin(), path.end());
    }
    Dismount(program);
    EXPECT_FALSE(Exists(file));
}

/// Names are numbers of 128 bits from the system: none twice, no digit standing still.
TEST_F(AccessTest, AddressesCannotBeGuessed) {
    std::vector<std::string> names;
    for (int i = 0; i < 4; ++i) {
        const QuillaTarn program(MountLine());
        ASSERT_TRUE(WaitUntil([] { return Exists(UriFile(0)); }));
        const std::wstring path = UriFile(0);
        std::ifstream file(std::string(path.begin(), path.end()));
        std::string uri;
        std::getline(file, uri);
        file.close();
        names.push_back(uri.substr(uri.rfind('/') + 1));
        EXPECT_EQ(names.back().size(), 5U + 32U);
        EXPECT_EQ(std::ranges::count(names, names.back()), 1);
        Dismount(program);
    }
    int same = 0;
    for (std::size_t digit = 5; digit < names[0].size(); ++digit)
        same += names[0][digit] == names[1][digit] && names[1][digit] == names[2][digit];
    EXPECT_LT(same, 8) << names[0] << ' ' << names[1] << ' ' << names[2];
}

std::vector<std::wstring> LoadedModules(HANDLE process) {
    std::vector<HMODULE> modules(512);
    DWORD used = 0;
    EXPECT_TRUE(EnumProcessModulesEx(process, modules.data(),
                                     static_cast<DWORD>(modules.size() * sizeof(HMODULE)), &used,
                                     LIST_MODULES_ALL));
    modules.resize(used / sizeof(HMODULE));
    std::vector<std::wstring> paths;
    for (const HMODULE module : modules) {
        wchar_t path[MAX_PATH] = L"";
        GetModuleFileNameExW(process, module, path, MAX_PATH);
        paths.emplace_back(path);
    }
    return paths;
}

std::wstring FileNameOf(const std::wstring& path) {
    return path.substr(path.rfind(L'\\') + 1);
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
    VirtualFreeEx(process, room, 0, MEM_RELEASE);
    return lowHalf != 0;
}

/// Libraries of every name the program loads, and of some that systems look for in vain, lie in the current
/// folder, which is the volume's folder too.
TEST_F(AccessTest, PlantedLibrariesAreNotLoaded) {
    std::vector<std::wstring> names = {L"QuillaDriver.dll",    L"profapi.dll",     L"cryptbase.dll",
                                       L"edputil.dll",         L"uxtheme.dll",     L"dwmapi.dll",
                                       L"version.dll",         L"textshaping.dll", L"ntshrui.dll",
                                       L"libwinpthread-1.dll", L"libstdc++-6.dll", L"libgcc_s_seh-1.dll"};
    {
        const QuillaTarn program(MountLine());
        ASSERT_TRUE(WaitUntil([] { return Exists(UriFile(0)); }));
        for (const std::wstring& path : LoadedModules(program.Process()))
            names.push_back(FileNameOf(path));
        Dismount(program);
    }
    const std::wstring planted = WindowsPath(QUILLA_PLANTED_LIBRARY);
    for (const std::wstring& name : names)
        if (name.ends_with(L".dll"))
            CopyFileW(planted.c_str(), folder.File(name).c_str(), FALSE);
    const std::wstring here = folder.File(L"");

    const QuillaTarn program(MountLine(), here.c_str());
    ASSERT_TRUE(WaitUntil([] { return Exists(UriFile(0)); }));
    const auto modules = LoadedModules(program.Process());
    EXPECT_GT(modules.size(), 10U);
    for (const std::wstring& path : modules)
        EXPECT_EQ(CompareStringOrdinal(path.data(), static_cast<int>(std::min(path.size(), here.size())),
                                       here.data(), static_cast<int>(here.size()), TRUE) == CSTR_EQUAL,
                  false)
            << std::string(path.begin(), path.end());

    // Nor would one be that lies nowhere else; the trap itself does work.
    const std::wstring only = folder.File(L"only-here.dll");
    CopyFileW(planted.c_str(), only.c_str(), FALSE);
    EXPECT_FALSE(LoadIn(program.Process(), L"only-here.dll"));
    EXPECT_FALSE(Exists(folder.File(L"loaded")));
    EXPECT_TRUE(LoadIn(program.Process(), only));
    EXPECT_TRUE(Exists(folder.File(L"loaded")));
    Dismount(program);
}

TEST_F(AccessTest, NoMemoryIsWritableAndExecutable) {
    const QuillaTarn program(L"");
    const HWND window = program.AwaitMainWindow();
    ASSERT_NE(window, nullptr);
    EXPECT_EQ(QuillaTarn(MountLine()).Wait(), 0U);
    ASSERT_TRUE(Exists(UriFile(0)));
    for (const std::uintptr_t address : FindWritableCode(program.Process())) {
        wchar_t owner[MAX_PATH] = L"";
        GetMappedFileNameW(program.Process(), reinterpret_cast<void*>(address), owner, MAX_PATH);
        const std::wstring name = owner;
        ADD_FAILURE() << std::hex << address << ' ' << std::string(name.begin(), name.end());
    }
    Dismount(program);
}

} // namespace
} // namespace quilla::test
