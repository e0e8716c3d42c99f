// After a volume's key has done its work, nothing of it may lie about: the whole memory of the real program
// is searched from outside for every form that a password or a key takes on its way.

#include "desktop/command_line_memory.h"
#include "quilladriver/sector_kernel.h"
#include "service/request_channel.h"
#include "store/volume_password.h"
#include "tests/export/nbd/nbd_client.h"
#include "tests/hardening/memory_scan.h"
#include "tests/support/quilla_tarn.h"
#include "ui/resource.h"
#include "volume/cast128.h"
#include "volume/twofish.h"

#include <atomic>
#include <commctrl.h>
#include <optional>
#include <set>
#include <string>
#include <thread>

namespace quilla::test {
namespace {

constexpr std::wstring_view kPassword = L"Tr0ub4dor&Quilla";
constexpr char kNarrowPassword[] = "password, 8 bits";
constexpr std::wstring_view kOtherPassword = L"c0rrectHorse?Staple";
constexpr wchar_t kDialogClass[] = L"#32770";

using Needles = std::vector<Needle>;

template <typename T>
std::span<const std::byte> BytesOf(const T& object) {
    return std::as_bytes(std::span(&object, 1));
}

void Add(Needles& needles, const std::string& what, std::span<const std::byte> bytes) {
    needles.push_back({.what = what, .bytes = {bytes.begin(), bytes.end()}});
}

/// Adds pieces of a schedule that look like nothing else: 32 bytes, about half of them different at least, as
/// some kernels keep a row of sixteen twice.
void AddPieces(Needles& needles, const std::string& what, std::span<const std::byte> schedule) {
    std::size_t count = 0;
    for (; schedule.size() >= 32 && count < 24; schedule = schedule.subspan(32))
        if (std::set(schedule.begin(), schedule.begin() + 32).size() >= 14) {
            Add(needles, what, schedule.first(32));
            ++count;
        }
}

KeyBlock OpenKey(const VolumeRecord& record, std::wstring_view password) {
    PasswordDigest key = KeyOf(password);
    KeyBlock block;
    EXPECT_TRUE(OpenVolumeKey(record, key, block));
    return block;
}

/// A password, its key and that key's schedule.
Needles SecretsOf(std::wstring_view password, CipherId cipher) {
    Needles needles;
    const std::string narrow(password.begin(), password.end());
    const PasswordDigest key = KeyOf(password);
    Add(needles, "password", std::as_bytes(std::span(password)));
    Add(needles, kNarrowPassword, std::as_bytes(std::span(narrow)));
    Add(needles, "password key", BytesOf(key));
    CastSchedule cast;
    BuildCastSchedule(cast, BytesOf(key).first<kCastKeySize>());
    TwofishSchedule twofish;
    EXPECT_TRUE(BuildTwofishSchedule(twofish, BytesOf(key)));
    AddPieces(needles, "schedule of the password key",
              cipher == CipherId::Cast128 ? BytesOf(cast) : BytesOf(twofish));
    return needles;
}

/// The same and the master key of a volume, whose first part is the data key.
Needles SecretsOf(const VolumeRecord& record, std::wstring_view password) {
    Needles needles = SecretsOf(password, record.Cipher);
    const KeyBlock block = OpenKey(record, password);
    for (std::size_t at = 0; at < kMasterKeySize; at += 32)
        Add(needles, at == 0 ? "data key" : "master key block", std::span(block.masterKey).subspan(at, 32));
    return needles;
}

/// The schedules of a volume's data key as the driver's kernels lay them out.
Needles SchedulesOf(const VolumeRecord& record, std::wstring_view password) {
    Needles needles;
    KeyBlock block = OpenKey(record, password);
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

/// Adds the key that the file's strength, if it has one, makes of the password's.
bool AddWrappingKey(Needles& needles, const VolumeRecord& record, std::wstring_view password) {
    std::optional<KeyStrength> strength;
    EXPECT_EQ(LoadKeyStrength(record.KeyPath, strength), KeyFileStatus::Done);
    PasswordDigest key = KeyOf(password);
    if (!strength || StrengthenKey(key, *strength) != Argon2Result::Done)
        return false;
    Add(needles, "wrapping key", key);
    return true;
}

class SecretsTest : public testing::TestWithParam<CipherId> {
  protected:
    void SetUp() override {
        // What earlier runs have put on the list would stand before the volume of this one.
        RegDeleteTreeW(HKEY_CURRENT_USER, L"Software\\Orvane\\Quilla\\Volumes");
    }

    /// Reads and writes a little, so that every part of the way has been in use.
    static void UseVolume() {
        const Address address(ReadSmallFile(UriFile(0)).value_or(""));
        NbdClient client(address.port);
        ASSERT_TRUE(client.Enter(address.name));
        ASSERT_EQ(client.Write(4096, Bytes(8192, 0x5A)), kOk);
        ASSERT_EQ(client.Read(4096, 8192), Bytes(8192, 0x5A));
    }

    static void ExpectClean(const QuillaTarn& program, const Needles& needles, const char* when) {
        // Wine keeps the arguments of the Unix side at the top of its first stack, where no Windows program
        // can find them; Windows has nothing of the kind.
        const bool isWine = GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
        int unixArguments = isWine ? 3 : 0;
        for (const auto& [what, address] : ScanMemory(program.Process(), needles))
            if (what != kNarrowPassword || --unixArguments < 0)
                ADD_FAILURE() << when << ": " << what << " at " << std::hex << address;
    }

    /// After the volume's key has gone, its schedules have, too.
    void ExpectAllClean(const QuillaTarn& program, const char* when) const {
        Needles all = secrets;
        all.insert(all.end(), schedules.begin(), schedules.end());
        ExpectClean(program, all, when);
    }

    [[nodiscard]] std::wstring Line(const wchar_t* verb, std::wstring_view password = {}) const {
        std::wstring line = std::wstring(verb) + L" \"" + record.Path + L"\"";
        return password.empty() ? line : line + L" /password " + std::wstring(password);
    }

    TemporaryFolder folder;
    const VolumeRecord record = CreateVolume(folder, GetParam(), kPassword);
    const Needles secrets = SecretsOf(record, kPassword);
    const Needles schedules = SchedulesOf(record, kPassword);
    const Needles other = SecretsOf(kOtherPassword, GetParam());
};

TEST_P(SecretsTest, NothingStaysOfAMountByCommandLine) {
    const QuillaTarn program(Line(L"mount", kPassword));
    ASSERT_TRUE(WaitUntil(IsMounted));
    program.AwaitMainWindow();
    UseVolume();
    ExpectClean(program, secrets, "while mounted");
    EXPECT_FALSE(ScanMemory(program.Process(), schedules).empty())
        << "the driver's schedules should have been found; the search does not see what it should";
    EXPECT_EQ(QuillaTarn(L"").Wait(), 0U); // a program that has been shown stays after the dismount
    EXPECT_EQ(QuillaTarn(Line(L"dismount")).Wait(), 0U);
    ASSERT_FALSE(IsMounted());
    ExpectAllClean(program, "after dismounting");
    program.Close();
}

TEST_P(SecretsTest, NothingStaysOfAPasswordThatIsOfNoUse) {
    const std::wstring line = Line(L"mount", kOtherPassword);
    const std::wstring misspelt = Line(L"mount") + L" /password:" + std::wstring(kOtherPassword);
    for (const std::wstring& given : {line, line + L" b.key surplus", misspelt}) {
        const QuillaTarn program(given);
        const HWND box = program.AwaitWindow(kDialogClass);
        ASSERT_NE(box, nullptr);
        ExpectClean(program, other, "while the box is open");
        ExpectAllClean(program, "while the box is open");
        PostMessageW(box, WM_COMMAND, IDOK, 0);
        static_cast<void>(program.Wait());
    }
}

/// Libraries that others bring into a process have threads of their own.
TEST(CommandLineTest, IsWipedWhileOtherThreadsGiveMemoryBack) {
    std::atomic<bool> isWiped = false;
    std::thread other([&] {
        for (SIZE_T size = 1 << 16; !isWiped; size = size % (1 << 23) + (1 << 16)) {
            void* const memory = VirtualAlloc(nullptr, size, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
            VirtualFree(memory, 0, MEM_RELEASE);
        }
    });
    std::wstring copy;
    for (int i = 0; i < 20; ++i) {
        std::wstring line = L"mount a.raw /password correct horse";
        copy = line;
        WipeCommandLine(line.data());
        EXPECT_EQ(line[0], 0);
        EXPECT_EQ(copy[0], 0) << "wherever it stands";
    }
    isWiped = true;
    other.join();
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

    void TearDown() override { program->Close(); }

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

    /// Fills the dialog in that changes a password; its check box tells whether guessing is slowed down.
    static void FillIn(HWND dialog, std::wstring_view old, std::wstring_view wanted, bool isStrong) {
        SendDlgItemMessageW(dialog, IDC_STRENGTH, BM_SETCHECK, isStrong ? BST_CHECKED : BST_UNCHECKED, 0);
        Type(dialog, IDC_OLD_PASSWORD, old);
        Type(dialog, IDC_NEW_PASSWORD, wanted);
        Type(dialog, IDC_CONFIRM_PASSWORD, wanted);
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
    HWND dialog = OpenDialog(IDM_MOUNT);
    Type(dialog, IDC_PASSWORD, kOtherPassword);
    Press(dialog, IDCANCEL);
    ExpectClean(*program, other, "after a cancelled dialog");

    dialog = OpenDialog(IDM_MOUNT);
    Type(dialog, IDC_PASSWORD, kOtherPassword);
    PostMessageW(dialog, WM_COMMAND, IDOK, 0);
    const HWND box = program->AwaitWindow(kDialogClass, L"Quilla Tarn Error");
    ASSERT_NE(box, nullptr);
    const Needles keys(other.begin() + 2, other.end()); // the password itself is in its edit
    ExpectClean(*program, keys, "while the message is open");
    Press(box, IDOK);
    Type(dialog, IDC_PASSWORD, kPassword); // over the selected text
    Press(dialog, IDOK);
    ASSERT_TRUE(IsMounted());
    UseVolume();
    ExpectClean(*program, other, "after a wrong password");
    ExpectClean(*program, secrets, "while mounted");
    PostMessageW(window, WM_COMMAND, IDM_DISMOUNT, 0);
    ASSERT_TRUE(WaitUntil([] { return !IsMounted(); }));
    Settle();
    ExpectAllClean(*program, "after dismounting");
}

TEST_P(SecretsInDialogsTest, NothingStaysOfAChangeOfPassword) {
    Needles all = secrets; // of both passwords, the master key and, below, each wrapping key
    const Needles others = SecretsOf(kOtherPassword, GetParam());
    all.insert(all.end(), others.begin(), others.end());
    std::wstring_view old = kPassword;
    std::wstring_view wanted = kOtherPassword;
    for (const bool isStrong : {false, true, true, false}) { // adds, keeps and removes the option
        const HWND dialog = OpenDialog(IDM_CHANGE_PASSWORD);
        FillIn(dialog, old, wanted, isStrong);
        Press(dialog, IDOK);
        EXPECT_EQ(AddWrappingKey(all, record, wanted), isStrong);
        ExpectClean(*program, all, "after the change");
        std::swap(old, wanted);
    }
}

/// While the function runs the dialog serves messages; no key of the volume may be open then.
TEST_P(SecretsInDialogsTest, NoKeyIsOpenWhileAChangeOfPasswordTakesItsTime) {
    KeyStrength strength{};
    ASSERT_TRUE(MakeKeyStrength(strength, {.memory = 64 * 1024, .passes = 16, .lanes = 1})); // a second
    PasswordDigest key = KeyOf(kPassword);
    KeyBlock block = OpenKey(record, kPassword);
    ASSERT_EQ(StrengthenKey(key, strength), Argon2Result::Done);
    ASSERT_TRUE(SealKeyBlock(block, GetParam(), key));
    ASSERT_EQ(ChangeKeyBlock(record.KeyPath, GetParam(), block, &strength), KeyFileStatus::Done);
    const Needles masterKey(secrets.end() - kMasterKeySize / 32, secrets.end());
    const HWND dialog = OpenDialog(IDM_CHANGE_PASSWORD);
    FillIn(dialog, kPassword, kOtherPassword, true);
    PostMessageW(dialog, WM_COMMAND, IDOK, 0);
    ASSERT_TRUE(
        WaitUntil([&] { return FindWindowExW(dialog, nullptr, PROGRESS_CLASSW, nullptr) != nullptr; }));
    int scans = 0;
    for (; IsWindow(dialog); ++scans)
        ExpectClean(*program, masterKey, "while the function runs");
    EXPECT_GT(scans, 1);
    OpenKey(record, kOtherPassword);
}

TEST_P(SecretsInDialogsTest, NothingStaysOfCreatingAVolume) {
    const HWND dialog = OpenDialog(IDM_NEW);
    VolumeRecord created{};
    CopyText(created.Path, folder.File(L"created.raw"));
    CopyText(created.KeyPath, folder.File(L"created.key"));
    SendDlgItemMessageW(dialog, IDC_VOLUME, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(created.Path));
    SendDlgItemMessageW(dialog, IDC_KEY, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(created.KeyPath));
    const HWND ciphers = GetDlgItem(dialog, IDC_CIPHER);
    SendMessageW(ciphers, CB_SETCURSEL, GetParam() == CipherId::Twofish ? 1 : 2, 0);
    SendMessageW(dialog, WM_COMMAND, MAKEWPARAM(IDC_CIPHER, CBN_SELCHANGE),
                 reinterpret_cast<LPARAM>(ciphers));
    Type(dialog, IDC_PASSWORD, kOtherPassword);
    Type(dialog, IDC_REPEAT, kOtherPassword);
    Press(dialog, IDOK);
    ReadVolumeInfo(created);
    ASSERT_EQ(created.Cipher, GetParam()) << "no such volume was created";
    Needles needles = SecretsOf(created, kOtherPassword);
    ASSERT_TRUE(AddWrappingKey(needles, created, kOtherPassword))
        << "guessing is slowed down unless the user says otherwise";
    ExpectClean(*program, needles, "after creating a volume");
}

constexpr CipherId kCiphers[] = {CipherId::Twofish, CipherId::Cast128};
INSTANTIATE_TEST_SUITE_P(Ciphers, SecretsTest, testing::ValuesIn(kCiphers));
INSTANTIATE_TEST_SUITE_P(Ciphers, SecretsInDialogsTest, testing::ValuesIn(kCiphers));

} // namespace
} // namespace quilla::test
