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
