#include "platform/error_box.h"

#include "platform/text.h"
#include "platform/win32/format_text.h"

#include <algorithm>
#include <cwchar>
#include <memory>
#include <new>
#include <utility>
#include <windows.h>

namespace quilla {

namespace {

/// The system's description of an error code, or its number when the system has none that fits.
void DescribeSystemError(DWORD error, std::span<wchar_t> text) {
    const DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                                        error, MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), text.data(),
                                        static_cast<DWORD>(text.size()), nullptr);
    if (length == 0)
        FormatText(text, L"Error code: %u", static_cast<unsigned>(error));
}

/// A text and a reason on a line of its own. Where they do not fit, the text, which ends with a path, loses
/// its middle: what the user needs is the reason.
void JoinError(TextView text, const wchar_t* reason, PathText& message) {
    const std::size_t room = kPathUnits - 1 - std::wcslen(reason) - 1;
    if (*reason == 0)
        CopyText(message, text);
    else if (text.empty())
        CopyText(message, reason);
    else if (text.size() <= room)
        FormatText(message, L"%ls\n%ls", text.data(), reason);
    else {
        constexpr std::size_t kDots = 3;
        const std::size_t head = (room - kDots) / 2;
        const std::size_t tail = room - kDots - head;
        FormatText(message, L"%.*ls...%ls\n%ls", static_cast<int>(head), text.data(),
                   text.data() + text.size() - tail, reason);
    }
}

/// Units for a reason and its terminating zero: what a text leaves of the message, and half of it at least.
std::size_t RoomForReason(TextView text) {
    return std::max(kPathUnits - 1 - std::min(text.size(), kPathUnits - 1), kPathUnits / 2);
}

/// An error that waits until nothing is held any more.
struct NotedError {
    wchar_t text[2 * kPathUnits];
    HWND owner;
    std::unique_ptr<NotedError> next;
};

struct Notes {
    unsigned holds = 0;
    bool isShowing = false;
    std::unique_ptr<NotedError> first;
    ErrorAnnouncer announce = nullptr;
    void* context = nullptr;
};
Notes notes;

void ShowBox(const wchar_t* text, HWND owner) {
    MessageBoxW(owner, text, L"Quilla Error", MB_ICONERROR);
}

/// The window that was active when the error came, unless it has gone or waits for another one by now.
HWND OwnerOf(const NotedError& error) {
    const bool isUsable = IsWindowVisible(error.owner) && IsWindowEnabled(error.owner);
    return isUsable ? error.owner : GetActiveWindow();
}

void NoteError(const wchar_t* text) {
    std::unique_ptr<NotedError>* end = &notes.first;
    for (; *end; end = &(*end)->next)
        if (lstrcmpW((*end)->text, text) == 0)
            return;
    end->reset(new (std::nothrow) NotedError{.text = {}, .owner = GetActiveWindow(), .next = nullptr});
    if (*end)
        CopyText((*end)->text, text);
}

} // namespace

void ShowError(const wchar_t* text) {
    if (notes.holds > 0)
        NoteError(text);
    else
        ShowBox(text, GetActiveWindow());
}

ErrorHold::ErrorHold() {
    ++notes.holds;
}

ErrorHold::~ErrorHold() {
    if (--notes.holds > 0 || !notes.first)
        return;
    if (notes.announce)
        notes.announce(notes.context);
    else
        ShowNotedErrors();
}

bool ShowNotedErrors() {
    if (notes.isShowing)
        return false;
    notes.isShowing = true;
    bool hasShown = false;
    while (notes.first && notes.holds == 0) {
        const std::unique_ptr<NotedError> error = std::move(notes.first);
        notes.first = std::move(error->next);
        ShowBox(error->text, OwnerOf(*error));
        hasShown = true;
    }
    notes.isShowing = false;
    return hasShown;
}

bool HasNotedErrors() {
    return notes.first != nullptr;
}

void SetErrorAnnouncer(ErrorAnnouncer announce, void* context) {
    notes.announce = announce;
    notes.context = context;
}

bool CheckResult(bool ok, const wchar_t* text) {
    if (!ok)
        ShowError(text);
    return ok;
}

bool CheckResultWithSystemError(bool ok, const wchar_t* text) {
    const DWORD error = GetLastError();
    if (ok)
        return ok;
    PathText message;
    wchar_t reason[kPathUnits] = {};
    if (error != ERROR_SUCCESS)
        DescribeSystemError(error, std::span(reason).first(RoomForReason(text)));
    JoinError(text, reason, message);
    ShowError(message);
    return ok;
}

} // namespace quilla
