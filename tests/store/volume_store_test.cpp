// The list of volumes in a real list view and in the real registry.

#include "platform/win32/handle.h"
#include "store/registry_store.h"
#include "store/volume_list.h"
#include "tests/support/list_window.h"
#include "tests/support/temporary_folder.h"
#include "volume/volume_files.h"

#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <vector>

namespace quilla {
namespace {

constexpr wchar_t kKey[] = L"Software\\Orvane\\Quilla\\Volumes";

class VolumeStoreTest : public testing::Test {
  protected:
    void SetUp() override { RegDeleteKeyW(HKEY_CURRENT_USER, kKey); }
    void TearDown() override { RegDeleteKeyW(HKEY_CURRENT_USER, kKey); }

    /// Creates the two files of a volume and returns its record.
    VolumeRecord MakeVolume(const std::wstring& name, std::uint64_t size, CipherId cipher) const {
        VolumeRecord record{};
        CopyText(record.Path, folder_.File(name + L".raw"));
        CopyText(record.KeyPath, folder_.File(name + L".key"));
        record.Size = size;
        record.Cipher = cipher;
        record.Timeout = 5 * kTimeoutUnitsPerMinute;
        EXPECT_TRUE(BuildVolumeFiles(record, PasswordDigest{}));
        return record;
    }

    static void SetValue(const std::wstring& name, DWORD type, const void* data, std::size_t size) {
        HKEY key = nullptr;
        RegCreateKeyExW(HKEY_CURRENT_USER, kKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr);
        EXPECT_EQ(RegSetValueExW(key, name.c_str(), 0, type, static_cast<const BYTE*>(data),
                                 static_cast<DWORD>(size)),
                  0);
        RegCloseKey(key);
    }

    /// Loads the registry into a new list; returns path and key path of each row.
    static std::vector<std::pair<std::wstring, std::wstring>> Load() {
        test::ListWindow window;
        LoadVolumeList(window.list);
        std::vector<std::pair<std::wstring, std::wstring>> rows;
        for (int row = 0; row < window.CountRows(); ++row)
            rows.emplace_back(window.Text(row, 0), RecordAt(window.list, row).KeyPath);
        return rows;
    }

    test::TemporaryFolder folder_;
};

TEST_F(VolumeStoreTest, ShowsWhatTheFilesSay) {
    const VolumeRecord volume = MakeVolume(L"Bär", 1'572'864, CipherId::Twofish);
    test::ListWindow window;
    EXPECT_EQ(FindVolume(window.list, volume.Path, volume.KeyPath), 0);
    const VolumeRecord& listed = RecordAt(window.list, 0);
    EXPECT_EQ(listed.Size, 1'572'864U);
    EXPECT_EQ(listed.Cipher, CipherId::Twofish);
    EXPECT_EQ(listed.Timeout, 5 * kTimeoutUnitsPerMinute);
    EXPECT_EQ(window.Text(0, 0), volume.Path);
    EXPECT_EQ(window.Text(0, 1), L"1.5 MB");
    EXPECT_EQ(window.Text(0, 2), L"Twofish - 256");
    EXPECT_EQ(window.Text(0, 3), volume.KeyPath);
    EXPECT_EQ(window.Image(0), -1);

    EXPECT_EQ(FindVolume(window.list, volume.Path, L""), 0);
    EXPECT_EQ(listed.Cipher, CipherId::None);
    EXPECT_EQ(listed.Timeout, 0U);
    EXPECT_EQ(window.Text(0, 2), L"None");
    EXPECT_EQ(window.Text(0, 3), L"");
}

TEST_F(VolumeStoreTest, FindsAVolumeInAnyLetterCase) {
    test::ListWindow window;
    EXPECT_EQ(FindVolume(window.list, L"C:\\Gone\\A.RAW", L"C:\\one.key"), 0);
    EXPECT_EQ(FindVolume(window.list, L"C:\\Gone\\ÄÖ.raw", L""), 1);
    EXPECT_EQ(FindVolume(window.list, L"c:\\gone\\a.raw", L""), 0);
    EXPECT_EQ(FindVolume(window.list, L"C:\\gone\\äö.Raw", L""), 1);
    EXPECT_EQ(FindVolume(window.list, L"C:\\Gone\\A.RAW2", L""), 2);
    EXPECT_EQ(window.Text(0, 0), L"C:\\Gone\\A.RAW") << "the listed spelling stays";
    EXPECT_EQ(window.Text(0, 1), L"0 Bytes") << "a file that is gone";
}

TEST_F(VolumeStoreTest, KeepsAMountedVolumeMounted) {
    const VolumeRecord volume = MakeVolume(L"a", 2048, CipherId::Cast128);
    test::ListWindow window;
    FindVolume(window.list, volume.Path, volume.KeyPath);
    VolumeRecord& listed = RecordAt(window.list, 0);
    EXPECT_FALSE(AnyVolumeMounted(window.list));
    listed.DeviceHandle = 3;
    const UniqueFile driversFile(
        CreateFileW(volume.Path, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    FindVolume(window.list, volume.Path, volume.KeyPath);
    EXPECT_EQ(&RecordAt(window.list, 0), &listed) << "the driver knows this address";
    EXPECT_EQ(listed.DeviceHandle, 3U);
    EXPECT_EQ(listed.Size, 2048U) << "while the driver has the file for itself";
    EXPECT_EQ(window.Image(0), 0);
    EXPECT_TRUE(AnyVolumeMounted(window.list));
}

TEST_F(VolumeStoreTest, FollowsSelectionAndRemoval) {
    test::ListWindow window;
    for (const wchar_t* const path : {L"a", L"b", L"c"})
        FindVolume(window.list, path, L"");
    EXPECT_EQ(SelectedRow(window.list), -1);
    window.Select(1);
    EXPECT_EQ(SelectedRow(window.list), 1);
    RemoveRow(window.list, 1);
    EXPECT_EQ(SelectedRow(window.list), -1);
    EXPECT_STREQ(RecordAt(window.list, 1).Path, L"c");
    ClearRows(window.list);
    EXPECT_EQ(window.CountRows(), 0);
}

TEST_F(VolumeStoreTest, SavesPathAndKeyPathOnly) {
    VolumeRecord own = MakeVolume(L"a", 512, CipherId::Cast128);
    VolumeRecord shared = MakeVolume(L"b", 512, CipherId::Twofish);
    test::ListWindow window;
    FindVolume(window.list, own.Path, own.KeyPath);
    FindVolume(window.list, L"C:\\gone\\c.raw", shared.KeyPath);
    FindVolume(window.list, L"C:\\gone\\d.raw", L"C:\\gone\\d.key");
    SetValue(L"C:\\old.raw", REG_SZ, L"x", 4);
    SaveVolumeList(window.list);

    HKEY key = nullptr;
    ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, kKey, 0, KEY_READ, &key), 0);
    std::map<std::wstring, std::wstring> saved;
    for (DWORD index = 0;; ++index) {
        wchar_t name[300];
        DWORD units = 300;
        wchar_t keyPath[300] = {};
        DWORD size = sizeof(keyPath);
        DWORD type = 0;
        if (RegEnumValueW(key, index, name, &units, nullptr, &type, reinterpret_cast<BYTE*>(keyPath),
                          &size) != 0)
            break;
        saved[name] = keyPath;
        EXPECT_EQ(type, DWORD{REG_BINARY});
        EXPECT_EQ(size, 520U);
    }
    RegCloseKey(key);
    EXPECT_EQ(saved,
              (std::map<std::wstring, std::wstring>{
                  {own.Path, own.KeyPath}, {L"C:\\gone\\c.raw", shared.KeyPath}, {L"C:\\gone\\d.raw", L""}}))
        << "a key file that is not there is not kept";
}

TEST_F(VolumeStoreTest, LoadsWhatItSaved) {
    const VolumeRecord volumes[] = {MakeVolume(L"a", 512, CipherId::Cast128),
                                    MakeVolume(L"b", 1024, CipherId::None),
                                    MakeVolume(L"c", 2048, CipherId::Twofish)};
    std::set<std::pair<std::wstring, std::wstring>> expected;
    {
        test::ListWindow window;
        for (const VolumeRecord& volume : volumes) {
            FindVolume(window.list, volume.Path, volume.Cipher == CipherId::None ? L"" : volume.KeyPath);
            expected.emplace(volume.Path, volume.Cipher == CipherId::None ? L"" : volume.KeyPath);
        }
        SaveVolumeList(window.list);
    }
    const auto rows = Load();
    EXPECT_EQ((std::set<std::pair<std::wstring, std::wstring>>(rows.begin(), rows.end())), expected)
        << "the default key file of the volume without a key does not exist and is dropped again";
}

TEST_F(VolumeStoreTest, TakesTheDefaultKeyFileForOddValues) {
    const VolumeRecord volume = MakeVolume(L"a", 512, CipherId::Cast128);
    CopyFileW(volume.KeyPath, folder_.File(L"other.key").c_str(), TRUE);
    const std::wstring other = folder_.File(L"other.key");
    wchar_t keyPath[300] = {};
    other.copy(keyPath, 259);
    struct {
        const char* what;
        DWORD type;
        std::size_t size;
        std::wstring expected;
    } const values[] = {
        {"proper", REG_BINARY, 520, other},
        {"text", REG_SZ, 520, volume.KeyPath},
        {"one unit short", REG_BINARY, 518, volume.KeyPath},
        {"one unit long", REG_BINARY, 522, volume.KeyPath},
        {"empty", REG_BINARY, 0, volume.KeyPath},
    };
    for (const auto& value : values) {
        RegDeleteKeyW(HKEY_CURRENT_USER, kKey);
        SetValue(volume.Path, value.type, keyPath, value.size);
        const auto rows = Load();
        ASSERT_EQ(rows.size(), 1U) << value.what;
        EXPECT_EQ(rows[0].second, value.expected) << value.what;
    }
    const PathText emptyText{};
    SetValue(volume.Path, REG_BINARY, emptyText, sizeof(emptyText));
    EXPECT_EQ(Load()[0].second, volume.KeyPath) << "an empty key path";
    PathText endless;
    std::fill(std::begin(endless), std::end(endless), L'x');
    SetValue(volume.Path, REG_BINARY, endless, sizeof(endless));
    EXPECT_EQ(Load().size(), 1U) << "a key path without an end";
}

TEST_F(VolumeStoreTest, LoadsAroundWhatNamesNoVolume) {
    EXPECT_TRUE(Load().empty()) << "without a key";
    SetValue(std::wstring(400, L'n'), REG_SZ, L"", 2);
    SetValue(L"a.raw", REG_SZ, L"", 2);
    SetValue(L"A.RAW", REG_SZ, L"", 2);
    EXPECT_EQ(Load().size(), 1U);
}

TEST_F(VolumeStoreTest, ManyVolumesStayQuick) {
    const ULONGLONG start = GetTickCount64();
    test::ListWindow window;
    for (int i = 0; i < 1000; ++i)
        FindVolume(window.list, folder_.File(L"volume " + std::to_wstring(i) + L".raw").c_str(), L"");
    SaveVolumeList(window.list);
    EXPECT_EQ(Load().size(), 1000U);
    EXPECT_LT(GetTickCount64() - start, 20'000U) << "about 2 seconds on an idle machine";
}

} // namespace
} // namespace quilla
