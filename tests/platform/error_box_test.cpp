// The error boxes as the user sees them: text, system description, caption, icon.

#include "platform/error_box.h"
#include "tests/support/message_box_watcher.h"

#include <gtest/gtest.h>
#include <windows.h>

namespace quilla {
namespace {

using test::MessageBoxWatcher;
using test::SeenBox;

TEST(ErrorBox, ShowsTextAndSystemDescriptionOfAFailure) {
    MessageBoxWatcher watcher;
    SetLastError(ERROR_ACCESS_DENIED);
    EXPECT_TRUE(CheckResultWithSystemError(true, L"text"));
    EXPECT_TRUE(watcher.Take().empty());
    const struct {
        DWORD error;
        std::wstring text;
        std::wstring shown; ///< at the start of the box
    } kCases[] = {{ERROR_ACCESS_DENIED, L"", L"Access denied"},
                  {0x2FFFFFFF, L"Cannot open X", L"Cannot open X\nError code: 805306367"},
                  {ERROR_ACCESS_DENIED, L"Cannot open " + std::wstring(300, L'p'), L"Cannot open ppp"}};
    for (const auto& failure : kCases) {
        SetLastError(failure.error);
        EXPECT_FALSE(CheckResultWithSystemError(false, failure.text.c_str()));
        const std::vector<SeenBox> boxes = watcher.Take();
        ASSERT_EQ(boxes.size(), 1U);
        EXPECT_EQ(boxes[0].text.substr(0, failure.shown.size()), failure.shown);
        EXPECT_LE(boxes[0].text.size(), 259U);
        EXPECT_EQ(boxes[0].text.find(L"\nAccess denied") != std::wstring::npos,
                  failure.error == ERROR_ACCESS_DENIED && !failure.text.empty());
        EXPECT_EQ(boxes[0].caption, L"Quilla Error");
        EXPECT_TRUE(boxes[0].errorIcon);
    }
}

TEST(ErrorBox, BelongsToTheActiveWindow) {
    MessageBoxWatcher watcher;
    const HWND window = CreateWindowExW(0, L"STATIC", L"owner", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 0, 0, 99,
                                        99, nullptr, nullptr, nullptr, nullptr);
    SetActiveWindow(window);
    ShowError(L"at once");
    {
        const ErrorHold hold;
        ShowError(L"later");
    }
    const std::vector<SeenBox> boxes = watcher.Take();
    ASSERT_EQ(boxes.size(), 2U);
    EXPECT_EQ(boxes[0].owner, window);
    EXPECT_EQ(boxes[1].owner, window);
    DestroyWindow(window);
}

} // namespace
} // namespace quilla
