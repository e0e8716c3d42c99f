// Driver control on the real driver and the real device manager: device names, failures, activity, time-outs
// and what is left after a dismount.

#include "service/driver_control.h"

#include "desktop/private_file.h"
#include "platform/clock.h"
#include "tests/export/nbd/nbd_client.h"
#include "tests/service/device_fixture.h"
#include "tests/support/message_box_watcher.h"

#include <thread>

namespace quilla {
namespace {

using test::Address;
using test::DeviceTest;
using test::MessageBoxWatcher;
using test::NbdClient;
using test::UriFile;

std::string UriOf(const VolumeRecord& record) {
    return test::ReadSmallFile(UriFile(static_cast<unsigned>(record.DeviceName[3] - L'0'))).value_or("");
}

TEST_F(DeviceTest, TakesTheFirstFreeNameAndTellsItsAddress) {
    VolumeRecord& a = MakeVolume(L"a.raw");
    VolumeRecord& b = MakeVolume(L"b.raw");
    VolumeRecord& c = MakeVolume(L"c.raw");
    VolumeRecord& d = MakeVolume(L"d.raw");
    driver_.LoadDriver(a);
    driver_.LoadDriver(b);
    driver_.LoadDriver(c);
    EXPECT_STREQ(a.DeviceName, L"SEC0:");
    EXPECT_STREQ(b.DeviceName, L"SEC1:");
    EXPECT_STREQ(c.DeviceName, L"SEC2:");
    EXPECT_TRUE(a.IsMounted() && b.IsMounted() && c.IsMounted());

    Unload(b);
    EXPECT_FALSE(b.IsMounted());
    EXPECT_STREQ(b.DeviceName, L"SEC1:") << "the name stays";
    EXPECT_FALSE(test::ReadSmallFile(UriFile(1)));
    {
        const UniqueFile elsewhere = WritePrivateFile(L"SEC1.uri", "another session's");
        driver_.LoadDriver(d);
        EXPECT_STREQ(d.DeviceName, L"SEC3:");
        Unload(d);
    }
    driver_.LoadDriver(d);
    EXPECT_STREQ(d.DeviceName, L"SEC1:");
    for (VolumeRecord* const record : {&a, &c, &d}) {
        const std::string uri = UriOf(*record);
        ASSERT_TRUE(uri.starts_with("nbd://127.0.0.1:")) << uri;
        const std::string name = Address(uri).name;
        EXPECT_TRUE(name.starts_with("SEC") && name.find('-') == 4) << uri;
        EXPECT_EQ(name.find_first_not_of("0123456789abcdef", 5), std::string::npos) << uri;
        EXPECT_EQ(name.size(), std::size_t{5 + 32}) << uri;
        wchar_t shown[DeviceExport::kUriSize];
        ASSERT_TRUE(GetDeviceManager().CopyUri(record->DeviceName, shown));
        EXPECT_EQ(std::string(std::begin(shown), std::begin(shown) + std::wcslen(shown)) + "\n", uri);
        Unload(*record);
        EXPECT_FALSE(record->IsMounted());
        EXPECT_EQ(UriOf(*record), "");
    }
}

TEST_F(DeviceTest, KeepsWhatClientsWrote) {
    VolumeRecord& record = MakeVolume(L"a.raw", 64 * 1024, CipherId::Twofish);
    test::Bytes text(1024, 0x41);
    driver_.LoadDriver(record);
    {
        const Address address(UriOf(record));
        NbdClient client(address.port);
        ASSERT_TRUE(client.Enter(address.name));
        EXPECT_EQ(DriverControl::CountClients(record), 1U);
        EXPECT_EQ(client.Write(512, text), test::kOk);
        EXPECT_EQ(Unload(record).clientsCutOff, 1U);
    }
    record.Key.fill(std::byte{0x11});
    driver_.LoadDriver(record);
    const Address address(UriOf(record));
    NbdClient client(address.port);
    ASSERT_TRUE(client.Enter(address.name));
    EXPECT_EQ(client.Read(512, 1024), text);
    EXPECT_TRUE(client.SendRequest(test::kCmdDisconnect, 0, 0));
    EXPECT_TRUE(client.IsClosed());
    EXPECT_EQ(Unload(record).clientsCutOff, 0U) << "it had said good-bye";
}

TEST_F(DeviceTest, ReportsADriverThatRefuses) {
    MessageBoxWatcher boxes;
    VolumeRecord& missing = MakeVolume(L"a.raw");
    CopyText(missing.Path, folder_.File(L"missing.raw"));
    VolumeRecord& tooSmall = MakeVolume(L"b.raw", 511);
    VolumeRecord& unknownCipher = MakeVolume(L"c.raw", 1024, static_cast<CipherId>(4));
    VolumeRecord& used = MakeVolume(L"d.raw");
    VolumeRecord again = used;
    driver_.LoadDriver(used);
    ASSERT_TRUE(boxes.Take().empty());
    for (VolumeRecord* const record : {&missing, &tooSmall, &unknownCipher, &again}) {
        driver_.LoadDriver(*record);
        EXPECT_FALSE(record->IsMounted());
        EXPECT_STREQ(record->DeviceName, L"SEC1:");
        const auto seen = boxes.Take();
        ASSERT_EQ(seen.size(), 1U);
        EXPECT_EQ(seen[0].caption, L"Quilla Error");
        EXPECT_EQ(seen[0].text, L"RegisterDevice() failed");
        EXPECT_TRUE(seen[0].errorIcon);
    }
    EXPECT_FALSE(test::ReadSmallFile(UriFile(1)));
    Unload(used);
}

TEST_F(DeviceTest, TellsTheTimeOfTheLastTransfer) {
    VolumeRecord& record = MakeVolume(L"a.raw");
    const std::uint64_t start = LocalFileTime();
    driver_.LoadDriver(record);
    driver_.QueryDriver(record);
    EXPECT_GE(record.ActivityTime + 10'000'000, start);
    const std::uint64_t mounted = record.ActivityTime;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const Address address(UriOf(record));
    NbdClient client(address.port);
    ASSERT_TRUE(client.Enter(address.name));
    ASSERT_TRUE(client.Read(0, 512));
    driver_.QueryDriver(record);
    EXPECT_GE(record.ActivityTime, mounted + 400'000) << "in 100-ns units";
    EXPECT_LE(record.ActivityTime, LocalFileTime());
}

} // namespace
} // namespace quilla
