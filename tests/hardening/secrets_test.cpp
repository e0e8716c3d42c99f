// After a volume's key has done its work, nothing of it may lie about: the whole memory of the real program
// is searched from outside for every form that a password or a key takes on its way.

#include "app/request_channel.h"
#include "quilladriver/sector_kernel.h"
#include "tests/hardening/memory_scan.h"
#include "tests/hardening/program.h"
#include "tests/nbd/nbd_client.h"
#include "ui/resource.h"
#include "volume/cast128.h"
#include "volume/sha1.h"
#include "volume/twofish.h"
#include "volume/volume_files.h"
#include "volume/volume_password.h"

#include <bit>
#include <fstream>
#include <optional>
#include <set>
#include <string>
#include <winternl.h>

namespace quilla::test {
namespace {

constexpr std::wstring_view kPassword = L"Tr0ub4dor&Quilla";
constexpr char kNarrowPassword[] = "password, 8 bits";
constexpr std::wstring_view kOtherPassword = L"c0rrectHorse?Staple";

template <typename T>
Needle MakeNeedle(const std::string& what, const T& object) {
    const auto bytes = std::as_bytes(std::span(&object, 1));
    return {.what = what, .bytes = {bytes.begin(), bytes.end()}};
}

/// Adds pieces of a table that look like nothing else: 32 bytes, most of them different.
void AddPieces(std::vector<Needle>& needles, const std::string& what, std::span<const std::byte> table) {
    constexpr std::size_t kLength = 32;
    std::size_t count = 0;
    for (std::size_t at = 0; at + kLength <= table.size() && count < 24; at += kLength) {
        const auto piece = table.subspan(at, kLength);
        if (std::set(piece.begin(), piece.end()).size() < 24)
            continue;
        needles.push_back({.what = what, .bytes = {piece.begin(), piece.end()}});
        ++count;
    }
}

void AddPassword(std::vector<Needle>& needles, std::wstring_view password, CipherId cipher) {
    const std::string narrow(password.begin(), password.end());
    const auto wide = std::as_bytes(std::span(password));
    const auto bytes = std::as_bytes(std::span(narrow));
    needles.push_back({.what = "password", .bytes = {wide.begin(), wide.end()}});
    needles.push_back({.what = kNarrowPassword, .bytes = {bytes.begin(), bytes.end()}});
    PasswordDigest key;
    PasswordKey(key, password);
    needles.push_back(MakeNeedle("password key", key));
    if (cipher == CipherId::Cast128) {
        CastSchedule schedule;
        BuildCastSchedule(schedule, std::as_bytes(std::span(key)).first<kCastKeySize>());
        AddPieces(needles, "schedule of the password key", std::as_bytes(std::span(&schedule, 1)));
    } else {
        TwofishSchedule schedule;
        ASSERT_TRUE(BuildTwofishSchedule(schedule, std::as_bytes(std::span(key))));
        AddPieces(needles, "schedule of the password key", std::as_bytes(std::span(&schedule, 1)));
    }
}

/// Everything secret about a volume except the schedules of its data key.
std::vector<Needle> SecretsOf(const VolumeRecord& record, std::wstring_view password) {
    std::vector<Needle> needles;
    AddPassword(needles, password, record.Cipher);
    PasswordDigest key;
    PasswordKey(key, password);
    KeyBlock block;
    EXPECT_TRUE(OpenVolumeKey(record, key, block));
    for (std::size_t at = 0; at < kMasterKeySize; at += 32)
        needles.push_back({.what = at == 0 ? "data key" : "master key block",
                           .bytes = {block.masterKey.begin() + static_cast<std::ptrdiff_t>(at),
                                     block.masterKey.begin() + static_cast<std::ptrdiff_t>(at) + 32}});
    return needles;
}

/// The schedules of a volume's data key as the driver's kernels lay them out.
std::vector<Needle> SchedulesOf(const VolumeRecord& record, std::wstring_view password) {
    std::vector<Needle> needles;
    PasswordDigest key;
    PasswordKey(key, password);
    KeyBlock block;
    EXPECT_TRUE(OpenVolumeKey(record, key, block));
    DataKey dataKey;
    TakeDataKey(dataKey, block);
    for (const SectorKernel* const kernel : AllSectorKernels()) {
        if (kernel->cipher != record.Cipher || !kernel->isSupported())
            continue;
        std::vector<std::byte> memory(kernel->scheduleSize + 4096);
        void* place = memory.data();
        std::size_t room = memory.size();
        std::align(4096, kernel->scheduleSize, place, room);
        kernel->setUp(place, dataKey);
        AddPieces(needles, std::string("schedule of ") + kernel->name,
                  {static_cast<const std::byte*>(place), kernel->scheduleSize});
    }
    return needles;
}

class SecretsTest : public testing::TestWithParam<CipherId> {
  protected:
    void SetUp() override {
        // What earlier runs have put on the list would stand before the volume of this one.
        RegDeleteTreeW(HKEY_CURRENT_USER, L"Software\\Orvane\\Quilla\\Volumes");
        MakeVolume(record, L"secret", kPassword);
        secrets = SecretsOf(record, kPassword);
        schedules = SchedulesOf(record, kPassword);
        ASSERT_FALSE(secrets.empty() || schedules.empty());
    }

    void MakeVolume(VolumeRecord& volume, const wchar_t* name, std::wstring_view password) {
        volume = {};
        CopyText(volume.Path, folder.File(std::wstring(name) + L".raw"));
        CopyText(volume.KeyPath, folder.File(std::wstring(name) + L".key"));
        volume.Size = 1 << 20;
        volume.Cipher = GetParam();
        PasswordDigest key;
        PasswordKey(key, password);
        ASSERT_TRUE(BuildVolumeFiles(volume, key));
    }

    /// Reads and writes a little, so that every part of the way has been in use.
    static void UseVolume() {
        std::ifstream file(UriFileName().c_str());
        std::string uri;
        ASSERT_TRUE(std::getline(file, uri));
        const std::size_t slash = uri.rfind('/');
        const std::size_t colon = uri.rfind(':');
        NbdClient client(static_cast<std::uint16_t>(std::stoi(uri.substr(colon + 1))));
        ASSERT_TRUE(client.Enter(uri.substr(slash + 1)));
        ASSERT_EQ(client.Write(4096, Bytes(8192, 0x5A)), kOk);
        ASSERT_EQ(client.Read(4096, 8192), Bytes(8192, 0x5A));
    }

    static std::string UriFileName() {
        const std::wstring name = UriFile(0);
        return {name.begin(), name.end()};
    }

    static bool IsMounted() { return Exists(UriFile(0)); }

    static void ExpectClean(const QuillaTarn& program, const std::vector<Needle>& needles, const char* when) {
        // Wine keeps the arguments of the Unix side at the top of its first stack, where no Windows program
        // can find them; Windows has nothing of the kind.
        constexpr int kUnixArguments = 3;
        int unixArguments = 0;
        for (const Finding& finding : ScanMemory(program.Process(), needles)) {
            if (finding.what == kNarrowPassword && IsWine() && ++unixArguments <= kUnixArguments)
                continue;
            ADD_FAILURE() << when << ": " << finding;
        }
        EXPECT_GT(BytesScanned(), std::size_t{1} << 20) << "nothing could be read";
    }

    static bool IsWine() {
        return GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
    }

    /// What the system tells others about the program's arguments.
    static std::wstring CommandLineOf(const QuillaTarn& program) {
        using Query = LONG(WINAPI*)(HANDLE, int, void*, ULONG, ULONG*);
        constexpr int kProcessCommandLineInformation = 60;
        const auto query =
            std::bit_cast<Query>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQueryInformationProcess"));
        alignas(void*) std::byte buffer[2048]{};
        if (query(program.Process(), kProcessCommandLineInformation, buffer, sizeof(buffer), nullptr) < 0)
            return L"?";
        const auto& text = *reinterpret_cast<const UNICODE_STRING*>(buffer);
        return {text.Buffer, text.Length / sizeof(wchar_t)};
    }

    [[nodiscard]] std::vector<Needle> Everything() const {
        std::vector<Needle> all = secrets;
        all.insert(all.end(), schedules.begin(), schedules.end());
        return all;
    }

    [[nodiscard]] std::wstring Quoted() const { return L"\"" + std::wstring(record.Path) + L"\""; }

    TemporaryFolder folder;
    VolumeRecord record{};
    std::vector<Needle> secrets;
    std::vector<Needle> schedules;
};

TEST_P(SecretsTest, NothingStaysOfAMountByCommandLine) {
    const QuillaTarn program(L"mount " + Quoted() + L" /password " + std::wstring(kPassword));
    ASSERT_TRUE(WaitUntil([] { return IsMounted(); }));
    program.AwaitMainWindow();
    UseVolume();
    EXPECT_EQ(CommandLineOf(program).find(kPassword), std::wstring::npos);
    ExpectClean(program, secrets, "while mounted");
    EXPECT_FALSE(ScanMemory(program.Process(), schedules).empty())
        << "the driver's schedules should have been found; the search does not see what it should";
    EXPECT_EQ(QuillaTarn(L"dismount " + Quoted()).Wait(), 0U);
    ASSERT_TRUE(WaitUntil([] { return !IsMounted(); }));
    ExpectClean(program, Everything(), "after dismounting");
    PostMessageW(program.AwaitMainWindow(), WM_CLOSE, 0, 0);
    EXPECT_EQ(program.Wait(), 0U);
}

TEST_P(SecretsTest, NothingStaysOfAWrongPassword) {
    std::vector<Needle> wrong;
    AddPassword(wrong, kOtherPassword, record.Cipher);
    const std::wstring password(kOtherPassword);
    const struct {
        std::wstring line;
        const wchar_t* caption;
    } kCases[] = {{L"mount " + Quoted() + L" /password " + password, L"Quilla Tarn Error"},
                  {L"mount a.raw b.key " + password + L" surplus", L"Quilla Tarn"},
                  {L"mount a.raw /password:" + password, L"Quilla Tarn"}};
    for (const auto& [line, caption] : kCases) {
        const QuillaTarn program(line);
        const HWND box = program.AwaitWindow(kDialogClass, caption);
        ASSERT_NE(box, nullptr);
        ExpectClean(program, wrong, "while the box is open");
        ExpectClean(program, Everything(), "while the box is open");
        PostMessageW(box, WM_COMMAND, IDOK, 0);
        static_cast<void>(program.Wait());
    }
}

/// What a user does in the window, by posted keys and commands.
class SecretsInDialogsTest : public SecretsTest {
  protected:
    void SetUp() override {
        SecretsTest::SetUp();
        program.emplace(L"");
        window = program->AwaitMainWindow();
        ASSERT_NE(window, nullptr);
        HWND list = nullptr; // it comes after its parent
        ASSERT_TRUE(WaitUntil([&] {
            list = FindWindowExW(window, nullptr, L"SysListView32", nullptr);
            return list != nullptr && IsWindowVisible(window);
        }));
        RequestChannel channel(window);
        VolumeRecord listed = record;
        channel.SendQueryVolume(listed); // puts it on the list
        PostMessageW(list, WM_KEYDOWN, VK_HOME, 0);
        PostMessageW(list, WM_KEYDOWN, VK_SPACE, 0);
        Settle();
    }

    void TearDown() override {
        PostMessageW(window, WM_CLOSE, 0, 0);
        EXPECT_EQ(program->Wait(), 0U);
    }

    /// Until the program has looked at all that was posted.
    void Settle() const {
        DWORD_PTR ignored = 0;
        for (int i = 0; i < 3; ++i)
            SendMessageTimeoutW(window, WM_NULL, 0, 0, SMTO_NORMAL, 10'000, &ignored);
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }

    [[nodiscard]] HWND OpenDialog(int command) const {
        PostMessageW(window, WM_COMMAND, static_cast<WPARAM>(command), 0);
        const HWND dialog = program->AwaitWindow(kDialogClass);
        EXPECT_TRUE(WaitUntil([&] { return IsWindowVisible(dialog); })); // its controls are there and filled
        return dialog;
    }

    static void Type(HWND dialog, int control, std::wstring_view text) {
        const HWND edit = GetDlgItem(dialog, control);
        ASSERT_NE(edit, nullptr);
        for (const wchar_t unit : text)
            PostMessageW(edit, WM_CHAR, unit, 0);
    }

    void Press(HWND dialog, int button) const {
        PostMessageW(dialog, WM_COMMAND, static_cast<WPARAM>(button), 0);
        EXPECT_TRUE(WaitUntil([&] { return !IsWindow(dialog); })) << "the dialog stays open";
        Settle();
    }

    std::optional<QuillaTarn> program;
    HWND window = nullptr;
};

TEST_P(SecretsInDialogsTest, NothingStaysOfTheMountDialog) {
    std::vector<Needle> wrong;
    AddPassword(wrong, kOtherPassword, record.Cipher);
    HWND dialog = OpenDialog(IDM_MOUNT);
    Type(dialog, IDC_PASSWORD, kOtherPassword);
    Press(dialog, IDCANCEL);
    ExpectClean(*program, wrong, "after a cancelled dialog");

    dialog = OpenDialog(IDM_MOUNT);
    Type(dialog, IDC_PASSWORD, kOtherPassword);
    PostMessageW(dialog, WM_COMMAND, IDOK, 0);
    const HWND box = program->AwaitWindow(kDialogClass, L"Quilla Tarn Error");
    ASSERT_NE(box, nullptr);
    PostMessageW(box, WM_COMMAND, IDOK, 0);
    ASSERT_TRUE(WaitUntil([&] { return !IsWindow(box); }));
    Type(dialog, IDC_PASSWORD, kPassword); // over the selected text
    Press(dialog, IDOK);
    ASSERT_TRUE(IsMounted());
    UseVolume();
    ExpectClean(*program, wrong, "after a wrong password");
    ExpectClean(*program, secrets, "while mounted");
    PostMessageW(window, WM_COMMAND, IDM_DISMOUNT, 0);
    ASSERT_TRUE(WaitUntil([] { return !IsMounted(); }));
    Settle();
    ExpectClean(*program, Everything(), "after dismounting");
}

TEST_P(SecretsInDialogsTest, NothingStaysOfAChangeOfPassword) {
    std::vector<Needle> other;
    AddPassword(other, kOtherPassword, record.Cipher);
    const HWND dialog = OpenDialog(IDM_CHANGE_PASSWORD);
    Type(dialog, IDC_OLD_PASSWORD, kPassword);
    Type(dialog, IDC_NEW_PASSWORD, kOtherPassword);
    Type(dialog, IDC_CONFIRM_PASSWORD, kOtherPassword);
    Press(dialog, IDOK);
    ExpectClean(*program, other, "after the change");
    ExpectClean(*program, secrets, "after the change");
    PasswordDigest key;
    PasswordKey(key, kOtherPassword);
    KeyBlock block;
    EXPECT_TRUE(OpenVolumeKey(record, key, block)) << "the password was not changed";
}

TEST_P(SecretsInDialogsTest, NothingStaysOfCreatingAVolume) {
    const HWND dialog = OpenDialog(IDM_NEW);
    const std::wstring path = folder.File(L"created.raw");
    SendDlgItemMessageW(dialog, IDC_VOLUME, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(path.c_str()));
    SendDlgItemMessageW(dialog, IDC_KEY, WM_SETTEXT, 0,
                        reinterpret_cast<LPARAM>(folder.File(L"created.key").c_str()));
    const WPARAM row = GetParam() == CipherId::Twofish ? 1 : 2;
    const HWND ciphers = GetDlgItem(dialog, IDC_CIPHER);
    SendMessageW(ciphers, CB_SETCURSEL, row, 0);
    SendMessageW(dialog, WM_COMMAND, MAKEWPARAM(IDC_CIPHER, CBN_SELCHANGE),
                 reinterpret_cast<LPARAM>(ciphers));
    Type(dialog, IDC_PASSWORD, kOtherPassword);
    Press(dialog, IDOK);
    VolumeRecord created{};
    CopyText(created.Path, path);
    CopyText(created.KeyPath, folder.File(L"created.key"));
    ReadVolumeInfo(created);
    ASSERT_EQ(created.Cipher, GetParam()) << "no such volume was created";
    ExpectClean(*program, SecretsOf(created, kOtherPassword), "after creating a volume");
}

constexpr CipherId kCiphers[] = {CipherId::Twofish, CipherId::Cast128};
INSTANTIATE_TEST_SUITE_P(Ciphers, SecretsTest, testing::ValuesIn(kCiphers));
INSTANTIATE_TEST_SUITE_P(Ciphers, SecretsInDialogsTest, testing::ValuesIn(kCiphers));

} // namespace
} // namespace quilla::test
