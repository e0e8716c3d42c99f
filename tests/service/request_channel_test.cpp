// The sending side of the request channel against a real window: what an exchange leaves behind, and how it
// meets others. What is sent is checked by the server's tests (request_server_test.cpp) and from
// outside (tests/endtoend).

#include "platform/win32/handle.h"
#include "service/request_channel.h"
#include "service/window_messages.h"
#include "tests/support/message_window.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <thread>

namespace quilla {
namespace {

UniqueMapping OpenRequestMapping(bool& existed) {
    UniqueMapping mapping(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096,
                                             L"Orvane Quilla Tarn Mapping"));
    existed = GetLastError() == ERROR_ALREADY_EXISTS;
    return mapping;
}

/// A window that takes requests and leaves them unanswered.
class RequestChannelTest : public testing::Test {
  protected:
    RequestChannelTest() {
        CopyText(record_.Path, L"\\Storage\\Bär.raw");
        record_.Key.fill(std::byte{0x4B});
    }

    std::optional<LRESULT> Answer(UINT message) {
        if (message != 0x8002)
            return std::nullopt;
        ++requests_;
        if (onRequest_)
            onRequest_();
        bool existed = false;
        const UniqueMapping mapping = OpenRequestMapping(existed);
        EXPECT_TRUE(existed);
        lastView_.Reset(MapViewOfFile(mapping.Get(), FILE_MAP_WRITE, 0, 0, 0));
        std::memcpy(sent_.data(), lastView_.Get(), sent_.size());
        return 0;
    }

    const test::MessageWindow window_{[this](UINT message, WPARAM, LPARAM) { return Answer(message); }};
    RequestChannel channel_{window_.hwnd};
    VolumeRecord record_{};
    std::function<void()> onRequest_;
    int requests_ = 0;
    std::array<std::byte, 1160> sent_{};
    UniqueView lastView_; ///< keeps the pages of the last request in existence
};

TEST_F(RequestChannelTest, SendsADigestAndLeavesNothingBehind) {
    PasswordDigest digest;
    digest.fill(std::byte{0xD1});
    channel_.SendCreateVolumeFile(record_, digest);
    EXPECT_EQ(requests_, 1);
    EXPECT_EQ(std::count(&sent_[1136], &sent_[1156], std::byte{0xD1}), 20);
    const auto* const pages = static_cast<const std::byte*>(lastView_.Get());
    EXPECT_EQ(std::count(pages, pages + 4096, std::byte{0}), 4096)
        << "the shared pages still hold the request";
    lastView_.Reset();

    bool existed = true;
    const UniqueMapping mapping = OpenRequestMapping(existed);
    EXPECT_FALSE(existed);
    const UniqueMutex mutex(OpenMutexW(SYNCHRONIZE, FALSE, L"Orvane Quilla Tarn Remote"));
    EXPECT_FALSE(mutex);
}

/// What a second sender sees of the mutex: held during an exchange, never released by hand.
TEST_F(RequestChannelTest, HoldsTheMutexAndPassesItOnAbandoned) {
    const UniqueEvent tried(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    DWORD during = WAIT_FAILED;
    DWORD afterwards = WAIT_FAILED;
    std::thread other;
    onRequest_ = [&] {
        other = std::thread([&] {
            const UniqueMutex mutex(OpenMutexW(SYNCHRONIZE, FALSE, L"Orvane Quilla Tarn Remote"));
            during = WaitForSingleObject(mutex.Get(), 0);
            SetEvent(tried.Get());
            afterwards = WaitForSingleObject(mutex.Get(), 20'000);
        });
        WaitForSingleObject(tried.Get(), 20'000);
    };
    channel_.SendCheckTimeouts();
    ASSERT_TRUE(other.joinable());
    other.join();
    EXPECT_EQ(during, DWORD{WAIT_TIMEOUT});
    EXPECT_EQ(afterwards, DWORD{WAIT_ABANDONED});
}

/// The server is busy for a while, on a thread that is not the sender's.
TEST_F(RequestChannelTest, WaitsForItsReply) {
    onRequest_ = [] {
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        bool existed = false;
        const UniqueMapping mapping = OpenRequestMapping(existed);
        const UniqueView view(MapViewOfFile(mapping.Get(), FILE_MAP_WRITE, 0, 0, 0));
        static_cast<RequestBlock*>(view.Get())->Record.Size = 77;
    };
    const UniqueEvent done(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    std::thread sender([&] {
        channel_.SendQueryVolume(record_);
        SetEvent(done.Get());
    });
    const HANDLE end = done.Get();
    MSG message;
    while (MsgWaitForMultipleObjects(1, &end, FALSE, 20'000, QS_ALLINPUT) == WAIT_OBJECT_0 + 1)
        PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE);
    sender.join();
    EXPECT_EQ(record_.Size, 77U);
}

TEST_F(RequestChannelTest, KeepsTheRecordWithoutAMapping) {
    const UniqueEvent squatter(CreateEventW(nullptr, TRUE, FALSE, L"Orvane Quilla Tarn Mapping"));
    const VolumeRecord before = record_;
    channel_.SendQueryVolume(record_);
    EXPECT_EQ(std::memcmp(&record_, &before, sizeof(before)), 0);
    EXPECT_EQ(requests_, 0);
}

/// Another sender has the mutex and sends while this thread waits for it: both must get on.
TEST_F(RequestChannelTest, AnswersOthersWhileItWaits) {
    const UniqueEvent ready(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    std::thread other([&] {
        const UniqueMutex mutex(CreateMutexW(nullptr, TRUE, L"Orvane Quilla Tarn Remote"));
        bool existed = true;
        const UniqueMapping mapping = OpenRequestMapping(existed);
        SetEvent(ready.Get());
        std::this_thread::sleep_for(std::chrono::milliseconds(200)); // the first one waits by then
        DWORD_PTR answer = 1;
        SendMessageTimeoutW(window_.hwnd, 0x8002, 0, 0, SMTO_NORMAL, 20'000, &answer);
        EXPECT_EQ(answer, 0U);
        EXPECT_EQ(requests_, 1) << "two senders at once";
    });
    WaitForSingleObject(ready.Get(), 30'000);
    channel_.SendCheckTimeouts();
    EXPECT_EQ(requests_, 2);
    other.join();
}

} // namespace
} // namespace quilla
