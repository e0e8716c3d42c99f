// What a driver is sent in its life, to the byte.

#include "tests/service/device_fixture.h"
#include "tests/service/recording_driver/recorded_call.h"
#include "tests/ui/ui_fixture.h"

#include <bit>
#include <cstring>
#include <span>

namespace quilla {
namespace {

using test::DeviceTest;
using test::RecordedCall;

/// The one call since the last time.
RecordedCall OnlyCall() {
    const HMODULE driver = GetModuleHandleW(L"QuillaDriver.dll");
    const auto take = std::bit_cast<const RecordedCall* (*)(unsigned*)>(GetProcAddress(driver, "TakeCalls"));
    unsigned count = 0;
    const RecordedCall* const calls = take(&count);
    EXPECT_EQ(count, 1U);
    return count == 1 ? *calls : RecordedCall{};
}

void ExpectCall(std::uint32_t code, std::span<const std::byte> input) {
    const RecordedCall call = OnlyCall();
    EXPECT_EQ(call.code, code) << std::hex << call.code;
    ASSERT_EQ(call.size, input.size());
    EXPECT_EQ(std::memcmp(call.input, input.data(), input.size()), 0);
    EXPECT_FALSE(call.hasOutput);
}

TEST_F(DeviceTest, ADriverIsSentItsNameTheRecordAndItsEnd) {
    VolumeRecord& record = MakeVolume(L"a.raw");
    const auto whole = std::as_bytes(std::span(&record, 1));
    driver_.LoadDriver(record);
    ASSERT_TRUE(record.IsMounted());
    ExpectCall(0x00071C10, std::as_bytes(std::span(L"SEC0:")));
    driver_.QueryDriver(record);
    ExpectCall(0x00071F80, whole);
    record.Timeout = 7 * kTimeoutUnitsPerMinute;
    driver_.UpdateDriver(record);
    ExpectCall(0x00071F84, whole);
    DriverControl::DetachDriver(record);
    ExpectCall(0x00071F88, {});
    driver_.UnloadDriver(record);
}

using PropertiesTest = test::UiTest;

TEST_F(PropertiesTest, TellTheDriverOfAMountedVolume) {
    OpenMainWindow();
    AddVolume(L"a", CipherId::None);
    MountRow(0);
    OnlyCall(); // with its name
    Command(IDM_PROPERTIES, {InDialog([] {
                test::Type(IDC_TIMEOUT, L"9");
                test::Press(IDOK);
            })});
    EXPECT_EQ(RecordOf(0).Timeout, 9 * kTimeoutUnitsPerMinute);
    ExpectCall(0x00071F84, std::as_bytes(std::span(&RecordOf(0), 1)));
}

} // namespace
} // namespace quilla
