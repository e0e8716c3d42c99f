#include "ui/strength_tip.h"

#include "platform/win32/format_text.h"
#include "platform/win32/handle.h"
#include "ui/resource.h"

#include <algorithm>
#include <commctrl.h>

namespace quilla {

namespace {

/// Beside the keys of volumes and window, under HKEY_CURRENT_USER: milliseconds at the default cost.
constexpr wchar_t kProgramKey[] = L"Software\\Orvane\\Quilla";
constexpr wchar_t kTimeName[] = L"StrengthMilliseconds";

/// The least memory and one pass; as many lanes as the default, for as many processors.
constexpr Argon2Cost kSmallCost = {.memory = 8 * 1024, .passes = 1, .lanes = kDefaultArgon2Cost.lanes};

/// Blocks to fill, which the time is proportional to.
constexpr std::uint64_t WorkOf(const Argon2Cost& cost) {
    return std::uint64_t{cost.memory} * cost.passes;
}

unsigned LoadTime() {
    DWORD value = 0;
    DWORD size = sizeof(value);
    RegGetValueW(HKEY_CURRENT_USER, kProgramKey, kTimeName, RRF_RT_REG_DWORD, nullptr, &value, &size);
    return value;
}

/// Since some moment in the past.
std::uint64_t Microseconds() {
    LARGE_INTEGER frequency;
    LARGE_INTEGER now;
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&now);
    return static_cast<std::uint64_t>(now.QuadPart) * 1'000'000 /
           static_cast<std::uint64_t>(frequency.QuadPart);
}

/// Milliseconds that the default cost would take, by the time of the small one; 0 without memory.
unsigned ExtrapolateTime() {
    constexpr std::byte kNoSecret[32]{};
    constexpr int kRounds = 3; // the fastest is disturbed least
    std::byte tag[32];
    std::uint64_t fastest = UINT64_MAX;
    for (int round = 0; round < kRounds; ++round) {
        const std::uint64_t begin = Microseconds();
        if (Argon2id(tag, {.password = kNoSecret, .salt = kNoSecret}, kSmallCost) != Argon2Result::Done)
            return 0;
        fastest = std::min(fastest, Microseconds() - begin);
    }
    const std::uint64_t whole = fastest * WorkOf(kDefaultArgon2Cost) / WorkOf(kSmallCost) / 1000;
    return static_cast<unsigned>(std::max<std::uint64_t>(whole, 1));
}

} // namespace

void StrengthTip::Remember(const Argon2Cost& cost, std::uint64_t milliseconds) {
    HKEY created = nullptr;
    if (cost != kDefaultArgon2Cost || RegCreateKeyExW(HKEY_CURRENT_USER, kProgramKey, 0, nullptr, 0,
                                                      KEY_WRITE, nullptr, &created, nullptr) != ERROR_SUCCESS)
        return;
    const UniqueRegistryKey key(created);
    const auto value = static_cast<DWORD>(std::clamp<std::uint64_t>(milliseconds, 1, UINT32_MAX));
    RegSetValueExW(key.Get(), kTimeName, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), sizeof(value));
}

void StrengthTip::Show(HWND dialog, const Argon2Cost& cost) {
    cost_ = cost;
    remembered_ = LoadTime();
    if (remembered_ == 0) {
        const auto measure = [](void* tip) {
            static_cast<StrengthTip*>(tip)->extrapolated_ = ExtrapolateTime();
        };
        static_cast<void>(measuring_.Start(measure, this));
    }
    Attach(CreateWindowExW(WS_EX_TOPMOST, TOOLTIPS_CLASSW, nullptr, WS_POPUP | TTS_NOPREFIX, CW_USEDEFAULT,
                           CW_USEDEFAULT, CW_USEDEFAULT, CW_USEDEFAULT, dialog, nullptr,
                           GetModuleHandleW(nullptr), nullptr));
    TTTOOLINFOW tool{};
    tool.cbSize = TTTOOLINFOW_V1_SIZE;
    tool.uFlags = TTF_IDISHWND | TTF_SUBCLASS;
    tool.hwnd = dialog;
    tool.uId = reinterpret_cast<UINT_PTR>(GetDlgItem(dialog, IDC_STRENGTH));
    tool.lpszText = LPSTR_TEXTCALLBACKW;
    SendMessageW(hwnd, TTM_ADDTOOLW, 0, reinterpret_cast<LPARAM>(&tool));
    SendMessageW(hwnd, TTM_SETMAXTIPWIDTH, 0, SHRT_MAX);
}

unsigned StrengthTip::Milliseconds() const {
    const std::uint64_t whole = remembered_ != 0 ? remembered_ : extrapolated_.load();
    return static_cast<unsigned>(whole * WorkOf(cost_) / WorkOf(kDefaultArgon2Cost));
}

LRESULT StrengthTip::OnNotify(NMHDR& header) {
    if (header.code != TTN_GETDISPINFOW)
        return BWindow::OnNotify(header);
    const unsigned tenths = (Milliseconds() + 50) / 100;
    const unsigned megabytes = cost_.memory / 1024;
    if (Milliseconds() == 0)
        FormatText(text_, L"Each try of the password takes %u MB of memory and a moment", megabytes);
    else if (tenths == 0)
        FormatText(text_, L"Each try of the password takes %u MB of memory and, here, less than 0.1 seconds",
                   megabytes);
    else
        FormatText(text_, L"Each try of the password takes %u MB of memory and, here, about %u.%u seconds",
                   megabytes, tenths / 10, tenths % 10);
    reinterpret_cast<NMTTDISPINFOW&>(header).lpszText = text_;
    return 0;
}

} // namespace quilla
