// The error boxes as the user sees them: text, system description, caption, icon.

#include "platform/error_box.h"
#include "tests/support/message_box_watcher.h"

#include <gtest/gtest.h>
#include <windows.h>

namespace quilla {
namespace {

using test::MessageBoxWatcher;
using test::SeenBox;

SeenBox OnlyBox(MessageBoxWatcher& watcher) {
    const std::vector<SeenBox> boxes = watcher.Take();
    EXPECT_EQ(boxes.size(), 1U);
    return boxes.empty() ? SeenBox{} : boxes.front();
}

TEST(ErrorBox, ShowsTextAndSystemDescriptionOfAFailure) {
    MessageBoxWatcher watcher;
    SetLastError(ERROR_ACCESS_DENIED);
    EXPECT_TRUE(CheckResult(true, L"text"));
    EXPECT_TRUE(CheckResultWithSystemError(true, L"text"));
    EXPECT_TRUE(watcher.Take().empty());
    EXPECT_FALSE(CheckResult(false, L"Unknown data format in file X"));
    const SeenBox box = OnlyBox(watcher);
    EXPECT_EQ(box.caption, L"Quilla Error");
    EXPECT_EQ(box.text, L"Unknown data format in file X");
    EXPECT_TRUE(box.errorIcon);

    const struct {
        DWORD error;
        const wchar_t* text;
        const wchar_t* shown; ///< at the start of the box
    } kCases[] = {{ERROR_ACCESS_DENIED, L"Cannot open X", L"Cannot open X\nAccess denied"},
                  {ERROR_ACCESS_DENIED, L"", L"Access denied"},
                  {0x2FFFFFFF, L"Cannot open X", L"Cannot open X\nError code: 805306367"}};
    for (const auto& failure : kCases) {
        SetLastError(failure.error);
        EXPECT_FALSE(CheckResultWithSystemError(false, failure.text));
        EXPECT_TRUE(OnlyBox(watcher).text.starts_with(failure.shown));
    }
    SetLastError(ERROR_SUCCESS);
    EXPECT_FALSE(CheckResultWithSystemError(false, L"Cannot open X"));
    EXPECT_EQ(OnlyBox(watcher).text, L"Cannot open X");
}

TEST(ErrorBox, LongTextsAreCutNotOverrun) {
    MessageBoxWatcher watcher;
    for (const std::size_t length : {256U, 257U, 258U, 259U, 260U, 1000U}) {
        SetLastError(ERROR_ACCESS_DENIED);
        EXPECT_FALSE(CheckResultWithSystemError(false, std::wstring(length, L'p').c_str()));
        const SeenBox box = OnlyBox(watcher);
        EXPECT_LE(box.text.size(), 259U);
        EXPECT_TRUE(box.text.starts_with(std::wstring(std::min<std::size_t>(length, 259), L'p')));
    }
}

} // namespace
} // namespace quilla
