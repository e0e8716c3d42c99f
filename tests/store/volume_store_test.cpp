// The list of volumes in a real list view and in the real registry.

#include "platform/win32/handle.h"
#include "store/registry_store.h"
#include "store/volume_files.h"
#include "store/volume_list.h"
#include "tests/support/list_window.h"
#include "tests/support/message_box_watcher.h"
#include "tests/support/temporary_folder.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <map>

namespace quilla {
namespace {

constexpr wchar_t kKey[] = L"Software\\Orvane\\Quilla\\Volumes";

/// By the volumes' paths.
using KeyPaths = std::map<std::wstring, std::wstring>;

class VolumeStoreTest : public testing::Test {
  protected:
    void SetUp() override { RegDeleteKeyW(HKEY_CURRENT_USER, kKey); }
    void TearDown() override { RegDeleteKeyW(HKEY_CURRENT_USER, kKey); }

    /// Creates the two files of a volume and returns its record.
    VolumeRecord MakeVolume(const std::wstring& name, std::uint64_t size = 2048) const {
        VolumeRecord record{};
        CopyText(record.Path, folder_.File(name + L".raw"));
        CopyText(record.KeyPath, folder_.File(name + L".key"));
        record.Size = size;
        record.Cipher = CipherId::Twofish;
        record.Timeout = 5 * kTimeoutUnitsPerMinute;
        EXPECT_TRUE(BuildVolumeFiles(record, PasswordDigest{}));
        return record;
    }

    static void SetValue(const std::wstring& name, DWORD type, const void* data, std::size_t size) {
        EXPECT_EQ(
            RegSetKeyValueW(HKEY_CURRENT_USER, kKey, name.c_str(), type, data, static_cast<DWORD>(size)), 0);
    }

    /// Loads the registry into a new list; returns the key path of each volume.
    static KeyPaths Load() {
        test::ListWindow window;
        LoadVolumeList(window.list);
        KeyPaths keyPaths;
        for (int row = 0; row < window.CountRows(); ++row)
            keyPaths[window.Text(row, 0)] = RecordAt(window.list, row).KeyPath;
        EXPECT_EQ(keyPaths.size(), static_cast<std::size_t>(window.CountRows()));
        return keyPaths;
    }

    test::TemporaryFolder folder_;
};

TEST_F(VolumeStoreTest, ShowsWhatTheFilesSay) {
    const VolumeRecord volume = MakeVolume(L"Bär", 1'572'864);
    test::ListWindow window;
    EXPECT_EQ(FindVolume(window.list, volume.Path, volume.KeyPath), 0);
    const std::wstring columns[] = {volume.Path, L"1.5 MB", L"Twofish - 256", volume.KeyPath};
    for (int column = 0; column < 4; ++column)
        EXPECT_EQ(window.Text(0, column), columns[column]);
    EXPECT_EQ(RecordAt(window.list, 0).Timeout, 5 * kTimeoutUnitsPerMinute);

    RecordAt(window.list, 0).Flags = 1;
    std::wstring shouted = volume.Path;
    CharUpperW(shouted.data());
    EXPECT_EQ(FindVolume(window.list, shouted.c_str(), L""), 0) << "the same volume without its key file";
    EXPECT_EQ(window.Text(0, 0), volume.Path) << "the listed spelling stays";
    EXPECT_EQ(RecordAt(window.list, 0).Timeout, 0U);
    EXPECT_EQ(RecordAt(window.list, 0).Flags, 0);
    EXPECT_EQ(window.Text(0, 2), L"None");
    EXPECT_EQ(window.Text(0, 3), L"");
}

TEST_F(VolumeStoreTest, KeepsAMountedVolumeMounted) {
    const VolumeRecord volume = MakeVolume(L"a");
    test::ListWindow window;
    FindVolume(window.list, volume.Path, volume.KeyPath);
    VolumeRecord& listed = RecordAt(window.list, 0);
    listed.DeviceHandle = 3;
    listed.Size = 0;
    UniqueFile driversFile(
        CreateFileW(volume.Path, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    FindVolume(window.list, volume.Path, volume.KeyPath);
    EXPECT_EQ(&RecordAt(window.list, 0), &listed) << "the driver knows this address";
    EXPECT_EQ(listed.DeviceHandle, 3U);
    EXPECT_EQ(listed.Size, 2048U) << "while the driver has the file for itself";
    driversFile.Reset();
    DeleteFileW(volume.Path);
    FindVolume(window.list, volume.Path, volume.KeyPath);
    EXPECT_EQ(listed.Size, 2048U) << "when it cannot be told";
}

TEST_F(VolumeStoreTest, LoadsWhatItSaved) {
    const VolumeRecord own = MakeVolume(L"a");
    test::ListWindow window;
    FindVolume(window.list, own.Path, own.KeyPath);
    FindVolume(window.list, L"C:\\gone\\c.raw", own.KeyPath);
    FindVolume(window.list, L"C:\\gone\\d.raw", L"C:\\gone\\d.key");
    FindVolume(window.list, L"C:\\gone\\e.raw", L"");
    RemoveRow(window.list, 3);
    SetValue(L"C:\\old.raw", REG_SZ, L"x", 4);
    SaveVolumeList(window.list);
    EXPECT_EQ(Load(), (KeyPaths{{own.Path, own.KeyPath},
                                {L"C:\\gone\\c.raw", own.KeyPath},
                                {L"C:\\gone\\d.raw", L"C:\\gone\\d.key"}}))
        << "a key file that is not there is kept: its medium may be absent";
}

TEST_F(VolumeStoreTest, TakesTheDefaultKeyFileForOddValues) {
    const VolumeRecord volume = MakeVolume(L"a");
    const std::wstring other = folder_.File(L"other.key");
    CopyFileW(volume.KeyPath, other.c_str(), TRUE);
    wchar_t otherPath[300] = {};
    other.copy(otherPath, 259);
    const wchar_t nothing[260] = {};
    wchar_t endless[260];
    std::ranges::fill(endless, L'x');
    const struct {
        DWORD type;
        const wchar_t* data;
        std::size_t size;
        std::wstring expected;
    } values[] = {
        {REG_BINARY, otherPath, 520, other},
        {REG_SZ, otherPath, 520, volume.KeyPath},
        {REG_BINARY, otherPath, 518, volume.KeyPath},
        {REG_BINARY, otherPath, 522, volume.KeyPath},
        {REG_BINARY, nothing, 520, volume.KeyPath},
        {REG_BINARY, endless, 520, std::wstring(endless, 259)}, // no file has such a name
    };
    for (const auto& [type, data, size, expected] : values) {
        SetValue(volume.Path, type, data, size);
        EXPECT_EQ(Load(), (KeyPaths{{volume.Path, expected}})) << "type " << type << " size " << size;
    }
}

TEST_F(VolumeStoreTest, LoadsAroundWhatNamesNoVolume) {
    EXPECT_TRUE(Load().empty()) << "without a key";
    SetValue(std::wstring(400, L'0'), REG_SZ, L"", 2); // the first in every order
    SetValue(L"", REG_SZ, L"", 2);                     // the key's default value
    SetValue(L"a.raw", REG_SZ, L"", 2);
    EXPECT_EQ(Load().size(), 1U);
}

} // namespace
} // namespace quilla
