// Requests end to end inside one process: the channel, a window that serves them, a real list, the real
// driver.

#include "service/request_server.h"

#include "platform/clock.h"
#include "service/request_channel.h"
#include "service/window_messages.h"
#include "store/volume_files.h"
#include "store/volume_password.h"
#include "tests/service/device_fixture.h"
#include "tests/support/list_window.h"
#include "tests/support/message_box_watcher.h"
#include "tests/support/message_window.h"
#include "tests/support/process_size.h"
#include "tests/support/program.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <iostream>

namespace quilla {
namespace {

constexpr std::uint64_t kSecond = 10'000'000;

/// Empties a file that somebody in this process has open, as another system on the same disk could.
void CutOpenFile(std::wstring_view name) {
    for (std::uintptr_t handle = 4; handle < 4096; handle += 4) {
        const HANDLE file = std::bit_cast<HANDLE>(handle);
        wchar_t path[MAX_PATH] = L"";
        if (GetFinalPathNameByHandleW(file, path, MAX_PATH, 0) != 0 &&
            std::wstring_view(path).ends_with(name)) {
            ASSERT_TRUE(SetFilePointerEx(file, LARGE_INTEGER{}, nullptr, FILE_BEGIN));
            ASSERT_TRUE(SetEndOfFile(file));
            return;
        }
    }
    FAIL() << "not open";
}

/// A serving instance without its main window: a list, and a window that hands WM_REQUEST on.
class RequestServerTest : public test::DeviceTest, private MountObserver {
  protected:
    struct Dismounted {
        std::wstring path;
        DismountReason reason;
        StopReport report;
    };

    void TearDown() override { server_.DismountAll(); }

    /// Creates a volume's files through a request; its password key is all zeros.
    VolumeRecord Create(const std::wstring& name, CipherId cipher, std::uint64_t timeout = 0) {
        VolumeRecord record{};
        CopyText(record.Path, folder_.File(name + L".raw"));
        CopyText(record.KeyPath, folder_.File(name + L".key"));
        record.Size = 64 * 1024;
        record.Cipher = cipher;
        record.Timeout = timeout;
        channel_.SendCreateVolumeFile(record, PasswordDigest{});
        return record;
    }

    /// What the command worker and the Mount dialog do: look the volume up, open its key, send it across.
    VolumeRecord Unlock(VolumeRecord record) {
        channel_.SendQueryVolume(record);
        PasswordDigest passwordKey{};
        EXPECT_TRUE(UnlockVolume(record, passwordKey));
        return record;
    }
    VolumeRecord Mount(const VolumeRecord& created) {
        VolumeRecord record = Unlock(created);
        channel_.SendMountVolume(record);
        return record;
    }

    VolumeRecord& Listed(const VolumeRecord& record) {
        return RecordAt(window_.list, FindVolume(window_.list, record.Path, record.KeyPath));
    }

    void OnVolumeDismounted(const VolumeRecord& record, DismountReason reason,
                            const StopReport& report) override {
        dismounted_.push_back({record.Path, reason, report});
    }

    std::optional<LRESULT> Answer(UINT message) {
        if (message == WM_REQUEST)
            return lastResult_ = server_.Serve();
        return std::nullopt;
    }

    const test::MessageWindow target_{[this](UINT message, WPARAM, LPARAM) { return Answer(message); }};
    test::ListWindow window_;
    RequestServer server_{window_.list, driver_, *this, 100};
    RequestChannel channel_{target_.hwnd};
    LRESULT lastResult_ = 0;
    std::vector<Dismounted> dismounted_;
};

TEST_F(RequestServerTest, CreatesLooksUpAndDeletes) {
    VolumeRecord record = Create(L"a", CipherId::Cast128, 3 * kTimeoutUnitsPerMinute);
    EXPECT_EQ(window_.CountRows(), 0) << "creating does not touch the list";
    VolumeRecord query{};
    CopyText(query.Path, record.Path);
    CopyText(query.KeyPath, record.KeyPath);
    channel_.SendQueryVolume(query);
    EXPECT_EQ(query.Size, 64U * 1024);
    EXPECT_EQ(query.Cipher, CipherId::Cast128);
    EXPECT_EQ(query.Timeout, 3 * kTimeoutUnitsPerMinute);
    EXPECT_EQ(window_.CountRows(), 1);
    channel_.SendDeleteVolumeFiles(record);
    EXPECT_EQ(GetFileAttributesW(record.Path), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(GetFileAttributesW(record.KeyPath), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(window_.CountRows(), 1) << "removing the row is the caller's work";
    channel_.SendDeleteVolumeFiles(record);
    EXPECT_EQ(lastResult_, 0);

    record = Create(L"a", CipherId::Cast128);
    DeleteFileW(record.Path);
    channel_.SendDeleteVolumeFiles(record);
    EXPECT_EQ(GetFileAttributesW(record.KeyPath), INVALID_FILE_ATTRIBUTES) << "left without its volume";
}

TEST_F(RequestServerTest, MountsAndDismounts) {
    const VolumeRecord created = Create(L"a", CipherId::Twofish);
    EXPECT_TRUE(server_.MayClose());
    VolumeRecord record = Unlock(created);
    record.Cipher = CipherId::None; // cipher and size are what the files say, time-out and flags the sender's
    record.Size = 512;
    record.Timeout = 50 * kSecond;
    record.Flags = 1;
    channel_.SendMountVolume(record);
    EXPECT_EQ(lastResult_, 0);
    EXPECT_TRUE(record.IsMounted());
    EXPECT_EQ(record.Cipher, CipherId::Twofish);
    EXPECT_EQ(record.Size, 64U * 1024);
    EXPECT_EQ(record.Timeout, 50 * kSecond);
    EXPECT_EQ(record.Flags, 1);
    EXPECT_STREQ(record.DeviceName, L"SEC0:");
    EXPECT_EQ(window_.Image(0), 0);
    EXPECT_FALSE(server_.MayClose());
    const DataKey zero{};
    EXPECT_EQ(record.Key, zero) << "the key came back";
    EXPECT_EQ(RecordAt(window_.list, 0).Key, zero) << "the list keeps the key";

    // A second mount, in another spelling, leaves the first alone and gives the sender its own record back.
    VolumeRecord again = created;
    CharUpperW(again.Path);
    again.Key.fill(std::byte{0x55});
    const VolumeRecord sent = again;
    channel_.SendMountVolume(again);
    EXPECT_EQ(lastResult_, -1);
    EXPECT_EQ(std::memcmp(&again, &sent, sizeof(sent)), 0);
    EXPECT_EQ(window_.CountRows(), 1);
    EXPECT_EQ(window_.Text(0, 1), L"64 KB");

    // The dismount request of a command line knows no key file.
    VolumeRecord dismount{};
    CopyText(dismount.Path, created.Path);
    channel_.SendDismountVolume(dismount);
    EXPECT_EQ(lastResult_, 0);
    EXPECT_FALSE(dismount.IsMounted());
    EXPECT_STREQ(dismount.DeviceName, L"SEC0:");
    EXPECT_EQ(window_.Image(0), -1);
    EXPECT_STREQ(RecordAt(window_.list, 0).KeyPath, L"");
    EXPECT_TRUE(server_.MayClose());
    channel_.SendDismountVolume(dismount);
    EXPECT_EQ(lastResult_, -1);
    ASSERT_EQ(dismounted_.size(), 1U);
    EXPECT_EQ(dismounted_[0].path, created.Path);
    EXPECT_EQ(dismounted_[0].reason, DismountReason::User);
    EXPECT_EQ(dismounted_[0].report.clientsCutOff, 0U);
    EXPECT_TRUE(dismounted_[0].report.flushed);
}

TEST_F(RequestServerTest, TellsOfDataThatDidNotReachTheFile) {
    const VolumeRecord record = Mount(Create(L"a", CipherId::Cast128));
    CutOpenFile(L"a.raw");
    channel_.SendDismountVolume(Listed(record));
    ASSERT_EQ(dismounted_.size(), 1U);
    EXPECT_FALSE(dismounted_[0].report.flushed);
}

TEST_F(RequestServerTest, AFailedMountLeavesNothing) {
    test::MessageBoxWatcher boxes;
    VolumeRecord record = Create(L"a", CipherId::Cast128);
    FindVolume(window_.list, record.Path, record.KeyPath);
    DeleteFileW(record.Path);
    record = Mount(record);
    EXPECT_FALSE(record.IsMounted());
    EXPECT_EQ(record.Key, DataKey{});
    EXPECT_EQ(RecordAt(window_.list, 0).Key, DataKey{});
    const auto seen = boxes.Take();
    ASSERT_EQ(seen.size(), 1U);
    EXPECT_EQ(seen[0].text, L"RegisterDevice() failed");
    EXPECT_TRUE(server_.MayClose());
    EXPECT_TRUE(dismounted_.empty());
}

/// Whatever is wrong with its key file, an enciphered volume is never exported as a plain one.
TEST_F(RequestServerTest, MountsNoEncipheredVolumeAsAPlainOne) {
    test::MessageBoxWatcher boxes;
    VolumeRecord record = Create(L"a", CipherId::Twofish);
    channel_.SendQueryVolume(record);
    PasswordDigest passwordKey{};
    ASSERT_TRUE(UnlockVolume(record, passwordKey));
    const auto expectRefused = [&](VolumeRecord request, const std::wstring& start) {
        channel_.SendMountVolume(request);
        EXPECT_FALSE(request.IsMounted());
        const auto seen = boxes.Take();
        ASSERT_EQ(seen.size(), 1U) << "for one cause";
        EXPECT_TRUE(seen[0].text.starts_with(start)) << seen[0].text;
    };
    {
        const File held =
            File::Open(record.KeyPath, FileAccess::ReadWrite, FileSharing::None, FileCreation::OpenExisting);
        expectRefused(record, L"Cannot open file " + std::wstring(record.KeyPath) + L"\nSharing violation");
    }
    VolumeRecord itself = record;
    CopyText(itself.KeyPath, FieldText(itself.Path));
    expectRefused(itself, L"A key file cannot be mounted");
    {
        const File file =
            File::Open(record.KeyPath, FileAccess::ReadWrite, FileSharing::None, FileCreation::OpenExisting);
        const std::byte noCipher{11};
        ASSERT_TRUE(file.WriteAt(60, {&noCipher, 1}).succeeded);
    }
    VolumeRecord keyless = record;
    keyless.Key = {};
    expectRefused(keyless, L"Unknown data format in file ");
    DeleteFileW(record.KeyPath);
    expectRefused(record, L"Cannot open file ");
    keyless.Path[0] = 0;
    channel_.SendQueryVolume(keyless);
    EXPECT_EQ(window_.CountRows(), 1) << "a volume without a name";
}

/// One volume under its other names: found, not mounted twice, not deleted under its driver, dismounted.
TEST_F(RequestServerTest, KnowsAVolumeByItsOtherNames) {
    const VolumeRecord record = Mount(Create(L"a", CipherId::Cast128));
    std::wstring slashes = record.Path;
    std::ranges::replace(slashes, L'\\', L'/');
    const std::wstring roundabout = folder_.File(L".\\x\\..\\A.raw");
    for (const std::wstring& name : {slashes, roundabout}) {
        VolumeRecord other = record;
        CopyText(other.Path, name);
        channel_.SendMountVolume(other);
        EXPECT_EQ(lastResult_, -1);
        channel_.SendDeleteVolumeFiles(other);
        EXPECT_NE(GetFileAttributesW(record.KeyPath), INVALID_FILE_ATTRIBUTES) << "deleted while mounted";
    }
    EXPECT_EQ(window_.CountRows(), 1);
    VolumeRecord dismount{};
    CopyText(dismount.Path, roundabout);
    channel_.SendDismountVolume(dismount);
    EXPECT_EQ(dismounted_.size(), 1U);
    EXPECT_EQ(window_.Text(0, 0), record.Path) << "shown as typed";
}

TEST_F(RequestServerTest, DismountsWhatHasTimedOut) {
    const VolumeRecord due = Mount(Create(L"due", CipherId::Cast128, 100 * kSecond));
    const VolumeRecord alsoDue = Mount(Create(L"also due", CipherId::Cast128, 100 * kSecond));
    const VolumeRecord later = Mount(Create(L"later", CipherId::Cast128, 100 * kSecond));
    const VolumeRecord never = Mount(Create(L"never", CipherId::Cast128, 0));
    VolumeRecord idle = Create(L"idle", CipherId::Cast128, 1);
    channel_.SendQueryVolume(idle);
    channel_.SendCheckTimeouts();
    EXPECT_TRUE(dismounted_.empty());

    // The driver keeps the time of the last transfer, so the time-outs move instead of the clock: one ends
    // ten seconds from now, inside the slack of fifteen, the other twenty seconds from now.
    const auto setEnd = [&](const VolumeRecord& record, std::uint64_t secondsFromNow) {
        VolumeRecord& listed = Listed(record);
        driver_.QueryDriver(listed);
        listed.Timeout = LocalFileTime() - listed.ActivityTime + secondsFromNow * kSecond;
        driver_.UpdateDriver(listed);
        listed.ActivityTime = 0; // the sweep has to ask the driver
    };
    setEnd(due, 10);
    setEnd(alsoDue, 10);
    setEnd(later, 20);
    channel_.SendCheckTimeouts();
    ASSERT_EQ(dismounted_.size(), 2U);
    EXPECT_EQ(dismounted_[0].path, alsoDue.Path) << "from the last row to the first";
    EXPECT_EQ(dismounted_[1].path, due.Path);
    EXPECT_EQ(dismounted_[1].reason, DismountReason::Timeout);
    EXPECT_TRUE(Listed(later).IsMounted());
    EXPECT_TRUE(Listed(never).IsMounted());
    EXPECT_STREQ(Listed(due).DeviceName, L"SEC0:");

    setEnd(later, 10); // and now by itself, as long as anything is mounted
    EXPECT_TRUE(test::WaitUntil([&] {
        test::ListWindow::application.PumpPending();
        return dismounted_.size() == 3;
    }));
    EXPECT_TRUE(Listed(never).IsMounted());
}

TEST_F(RequestServerTest, IgnoresWhatIsNoRequest) {
    EXPECT_EQ(SendMessageW(target_.hwnd, WM_REQUEST, 0, 0), 0) << "nobody has written one";
    const UniqueMapping mapping(
        CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096, kRequestMappingName));
    const UniqueView view(MapViewOfFile(mapping.Get(), FILE_MAP_WRITE, 0, 0, 0));
    auto* const bytes = static_cast<std::byte*>(view.Get());
    for (const std::uint32_t code : {0U, 7U, 0xFFFFFFFFU}) {
        std::fill_n(bytes, 1160, std::byte{0x5A});
        std::memcpy(bytes, &code, sizeof(code));
        EXPECT_EQ(SendMessageW(target_.hwnd, WM_REQUEST, 0, 0), 0);
        EXPECT_EQ(std::count(bytes + 4, bytes + 1160, std::byte{0x5A}), 1156) << "the block was changed";
    }
    // A path without an end must not be read beyond its field.
    const std::uint32_t query = 2;
    std::fill_n(bytes, 1160, std::byte{0x5A});
    std::memcpy(bytes, &query, sizeof(query));
    EXPECT_EQ(SendMessageW(target_.hwnd, WM_REQUEST, 0, 0), 0);
    ASSERT_EQ(window_.CountRows(), 1);
    EXPECT_EQ(window_.Text(0, 0).size(), 259U);
}

TEST_F(RequestServerTest, DoesNotGrow) {
    const VolumeRecord record = Create(L"a", CipherId::Cast128);
    const auto mountOnce = [&] {
        VolumeRecord mounted = Mount(record);
        ASSERT_TRUE(mounted.IsMounted());
        channel_.SendDismountVolume(mounted);
        ASSERT_FALSE(mounted.IsMounted());
        dismounted_.clear();
    };
    for (int i = 0; i < 20; ++i)
        mountOnce();
    const test::ProcessSize before = test::MeasureProcess();
    const int rounds = std::getenv("QUILLA_LONG_RUN") != nullptr ? 100'000 : 200;
    for (int i = 1; i <= rounds; ++i) {
        mountOnce();
        if (i % 5000 == 0)
            std::cout << i << " mounts: " << test::MeasureProcess() << std::endl;
    }
    const test::ProcessSize after = test::MeasureProcess();
    EXPECT_LE(after.handles, before.handles) << before << " / " << after;
    EXPECT_LE(after.threads, before.threads) << before << " / " << after;
    EXPECT_LE(after.windows, before.windows) << before << " / " << after;
    EXPECT_LE(after.drawingObjects, before.drawingObjects) << before << " / " << after;
    EXPECT_LE(after.committedBytes, before.committedBytes + 256 * 1024) << before << " / " << after;
}

} // namespace
} // namespace quilla
