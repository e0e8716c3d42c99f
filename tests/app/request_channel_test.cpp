// The sending side of the request channel against a real window, from the window's own thread and from other
// processes. What arrives is checked byte by byte at the offsets of the fixed layout, not through our
// structures.

#include "app/request_channel.h"
#include "driver/window_messages.h"
#include "platform/win32/handle.h"
#include "tests/support/program.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <thread>

namespace quilla {
namespace {

using test::Program;
using test::WaitUntil;

constexpr wchar_t kTargetVariable[] = L"QUILLA_TEST_TARGET";
constexpr wchar_t kReadyEvent[] = L"Quilla test: mutex taken";

UniqueMapping OpenRequestMapping(bool& existed) {
    UniqueMapping mapping(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096,
                                             L"Orvane Quilla Tarn Mapping"));
    existed = GetLastError() == ERROR_ALREADY_EXISTS;
    return mapping;
}

/// A window that answers requests through a function of the test, which gets the mapping's first bytes.
class Target {
  public:
    using Answer = std::function<LRESULT(std::byte*)>;

    explicit Target(Answer answer) : answer_(std::move(answer)) {
        hwnd = CreateWindowExW(0, L"STATIC", L"request target", 0, 0, 0, 0, 0, nullptr, nullptr, nullptr,
                               nullptr);
        SetWindowLongPtrW(hwnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
        SetWindowLongPtrW(hwnd, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(Procedure));
    }
    ~Target() { DestroyWindow(hwnd); }
    Target(const Target&) = delete;
    Target& operator=(const Target&) = delete;

    /// Serves until a process has ended; returns its exit code.
    static DWORD ServeUntilEnd(const Program& peer) {
        EXPECT_TRUE(WaitUntil([&] {
            MSG ignored; // requests are sent, not posted: looking for messages serves them
            PeekMessageW(&ignored, nullptr, 0, 0, PM_REMOVE);
            return peer.HasEnded();
        }));
        return peer.Wait();
    }

    HWND hwnd = nullptr;
    int requests = 0;
    UniqueView lastView; ///< keeps the pages of the last request in existence

  private:
    static LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
        if (message != 0x8002)
            return DefWindowProcW(window, message, wParam, lParam);
        auto& self = *reinterpret_cast<Target*>(GetWindowLongPtrW(window, GWLP_USERDATA));
        EXPECT_EQ(wParam, 0U);
        EXPECT_EQ(lParam, 0);
        ++self.requests;
        bool existed = false;
        const UniqueMapping mapping = OpenRequestMapping(existed);
        EXPECT_TRUE(existed);
        self.lastView.Reset(MapViewOfFile(mapping.Get(), FILE_MAP_WRITE, 0, 0, 0));
        return self.answer_(static_cast<std::byte*>(self.lastView.Get()));
    }

    Answer answer_;
};

std::uint32_t CodeIn(const std::byte* block) {
    std::uint32_t code = 0;
    std::memcpy(&code, block, sizeof(code));
    return code;
}

std::wstring TextAt(const std::byte* block, std::size_t offset) {
    return std::wstring(reinterpret_cast<const wchar_t*>(block + offset));
}

VolumeRecord SampleRecord() {
    VolumeRecord record{};
    CopyText(record.Path, L"\\Storage\\Bär.raw");
    CopyText(record.KeyPath, L"\\Storage\\Bär.key");
    record.Key.fill(std::byte{0x4B});
    return record;
}

/// Starts one of the disabled tests below as a process of its own.
Program StartPeer(const Target& target, const std::wstring& test) {
    SetEnvironmentVariableW(kTargetVariable,
                            std::to_wstring(reinterpret_cast<std::uintptr_t>(target.hwnd)).c_str());
    wchar_t program[MAX_PATH];
    GetModuleFileNameW(nullptr, program, MAX_PATH);
    return Program(program, L"--gtest_also_run_disabled_tests --gtest_filter=ChannelPeer.DISABLED_" + test);
}

HWND TargetOfPeer() {
    wchar_t text[32] = {};
    GetEnvironmentVariableW(kTargetVariable, text, 32);
    return reinterpret_cast<HWND>(std::stoull(text));
}

TEST(RequestChannelTest, EveryOperationSendsItsCodeAndRecord) {
    std::uint32_t code = 0;
    bool digestArrived = false;
    Target target([&](std::byte* block) {
        code = CodeIn(block);
        digestArrived = block[1136] == std::byte{0xD1} && block[1155] == std::byte{0xD1};
        if (code != 6) {
            EXPECT_EQ(TextAt(block, 8), L"\\Storage\\Bär.raw");
            EXPECT_EQ(TextAt(block, 8 + 528), L"\\Storage\\Bär.key");
            EXPECT_EQ(block[8 + 1092], std::byte{0x4B});
            block[8 + 1088] = std::byte{7}; // the device handle of the reply
        }
        return LRESULT{-1};
    });
    RequestChannel channel(target.hwnd);
    struct {
        std::uint32_t code;
        void (RequestChannel::*send)(VolumeRecord&);
    } const operations[] = {{2, &RequestChannel::SendQueryVolume},
                            {3, &RequestChannel::SendDeleteVolumeFiles},
                            {4, &RequestChannel::SendMountVolume},
                            {5, &RequestChannel::SendDismountVolume}};
    for (const auto& operation : operations) {
        VolumeRecord record = SampleRecord();
        (channel.*operation.send)(record);
        EXPECT_EQ(code, operation.code);
        EXPECT_EQ(record.DeviceHandle, 7U) << "the reply replaces the caller's record";
        EXPECT_FALSE(digestArrived);
    }
    VolumeRecord record = SampleRecord();
    PasswordDigest digest;
    digest.fill(std::byte{0xD1});
    channel.SendCreateVolumeFile(record, digest);
    EXPECT_EQ(code, 1U);
    EXPECT_TRUE(digestArrived);
    EXPECT_EQ(record.DeviceHandle, 7U);
    channel.SendCheckTimeouts();
    EXPECT_EQ(code, 6U);
    EXPECT_EQ(target.requests, 6);
}

TEST(RequestChannelTest, LeavesNothingBehind) {
    Target target([](std::byte*) { return LRESULT{0}; });
    RequestChannel channel(target.hwnd);
    VolumeRecord record = SampleRecord();
    channel.SendMountVolume(record);
    const auto* const pages = static_cast<const std::byte*>(target.lastView.Get());
    EXPECT_EQ(std::count(pages, pages + 4096, std::byte{0}), 4096)
        << "the shared pages still hold the request";
    target.lastView.Reset();

    bool existed = true;
    const UniqueMapping mapping = OpenRequestMapping(existed);
    EXPECT_FALSE(existed);
    const UniqueMutex mutex(OpenMutexW(SYNCHRONIZE, FALSE, L"Orvane Quilla Tarn Remote"));
    EXPECT_FALSE(mutex);
}

TEST(RequestChannelTest, KeepsTheRecordWithoutAMapping) {
    Target target([](std::byte*) { return LRESULT{0}; });
    RequestChannel channel(target.hwnd);
    const UniqueEvent squatter(CreateEventW(nullptr, TRUE, FALSE, L"Orvane Quilla Tarn Mapping"));
    VolumeRecord record = SampleRecord();
    channel.SendQueryVolume(record);
    const VolumeRecord sample = SampleRecord();
    EXPECT_EQ(std::memcmp(&record, &sample, sizeof(record)), 0);
    EXPECT_EQ(target.requests, 0);
}

TEST(RequestChannelTest, ServesProcessesInARowAndAtOnce) {
    int depth = 0;
    Target target([&](std::byte* block) {
        EXPECT_EQ(++depth, 1) << "two exchanges at once";
        EXPECT_EQ(CodeIn(block), 2U);
        block[8 + 1088] = std::byte{9};
        --depth;
        return LRESULT{0};
    });
    // Requests of the own thread between those of others must not leave the mutex in the way.
    RequestChannel channel(target.hwnd);
    for (int i = 0; i < 3; ++i) {
        VolumeRecord record = SampleRecord();
        channel.SendQueryVolume(record);
        EXPECT_EQ(Target::ServeUntilEnd(StartPeer(target, L"Queries")), 0U);
    }
    const Program one = StartPeer(target, L"Queries");
    const Program other = StartPeer(target, L"Queries");
    EXPECT_EQ(Target::ServeUntilEnd(one), 0U);
    EXPECT_EQ(Target::ServeUntilEnd(other), 0U);
    EXPECT_EQ(target.requests, 3 + 5 * 2);
}

/// The other process has the mutex and sends while this thread waits for it: both must get on.
TEST(RequestChannelTest, AnswersOthersWhileItWaits) {
    Target target([](std::byte*) { return LRESULT{0}; });
    RequestChannel channel(target.hwnd);
    const UniqueEvent ready(CreateEventW(nullptr, TRUE, FALSE, kReadyEvent));
    const Program peer = StartPeer(target, L"SendsLate");
    ASSERT_EQ(WaitForSingleObject(ready.Get(), 30'000), WAIT_OBJECT_0);
    channel.SendCheckTimeouts();
    EXPECT_EQ(target.requests, 2);
    EXPECT_EQ(Target::ServeUntilEnd(peer), 0U);
}

// The other processes of the tests above; they are started with a target window in their environment.

TEST(ChannelPeer, DISABLED_Queries) {
    const HWND target = TargetOfPeer();
    RequestChannel channel(target);
    for (int i = 0; i < 2; ++i) {
        VolumeRecord record = SampleRecord();
        channel.SendQueryVolume(record);
        EXPECT_EQ(record.DeviceHandle, 9U);
    }
}

TEST(ChannelPeer, DISABLED_SendsLate) {
    const UniqueMutex mutex(CreateMutexW(nullptr, TRUE, L"Orvane Quilla Tarn Remote"));
    bool existed = true;
    const UniqueMapping mapping = OpenRequestMapping(existed);
    const UniqueEvent ready(OpenEventW(EVENT_MODIFY_STATE, FALSE, kReadyEvent));
    ASSERT_TRUE(SetEvent(ready.Get()));
    std::this_thread::sleep_for(std::chrono::milliseconds(200)); // the other side waits for the mutex by then
    EXPECT_EQ(SendMessageW(TargetOfPeer(), 0x8002, 0, 0), 0);
}

} // namespace
} // namespace quilla
