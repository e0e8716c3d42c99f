// The eyes and hands of the end-to-end runs on the Windows side. Answers each line of words on its input with
// one line of words, each in hexadecimal UTF-8; an empty line, if what is asked for is not there. It knows
// nothing of the program but the names that are its outer interface, so the runs stay black-box:
//
//   exchange HEX            one exchange over the request channel: the block that came back, the result
//   box MS                  waits for any message box and presses its first button: caption, text
//   window                  the serving window: process, whether visible
//   send MESSAGE W CLASS    sends a message to the serving window, or to its child of a class: the answer
//   change OLD NEW STRONG   begins a change of the selected volume's password by its dialog; STRONG is 0 or 1
//   take                    takes the mutex of the exchanges and holds it
//   give                    gives it up, to whoever waits first
//   focus                   the title of the foreground window, if it or a child of it has the keyboard

#include "platform/win32/handle.h"
#include "tests/support/hex.h"
#include "tests/support/window_text.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>
#include <windows.h>

namespace {

using Words = std::vector<std::string>;
using namespace quilla;
using namespace quilla::test;

constexpr UINT kRequest = 0x8002;
constexpr std::size_t kBlockSize = 1160;

std::string Utf8(std::wstring_view text) {
    const int units = static_cast<int>(text.size());
    std::string bytes(static_cast<std::size_t>(
                          WideCharToMultiByte(CP_UTF8, 0, text.data(), units, nullptr, 0, nullptr, nullptr)),
                      0);
    WideCharToMultiByte(CP_UTF8, 0, text.data(), units, bytes.data(), static_cast<int>(bytes.size()), nullptr,
                        nullptr);
    return bytes;
}

Words Split(const std::string& line) {
    std::istringstream stream(line);
    return {std::istream_iterator<std::string>(stream), {}};
}

/// The window of an instance that is ready for requests, which its event tells; a window that is still being
/// made is none yet.
HWND ServingWindow() {
    const UniqueEvent event(OpenEventW(SYNCHRONIZE, FALSE, L"Orvane Quilla Tarn"));
    const bool ready = event && WaitForSingleObject(event.Get(), 0) == WAIT_OBJECT_0;
    return ready ? FindWindowW(L"BWindow", L"Quilla Tarn") : nullptr;
}

Words Window(const Words&) {
    const HWND window = ServingWindow();
    if (!window)
        return {};
    return {std::to_string(ProcessOf(window)), IsWindowVisible(window) ? "visible" : "hidden"};
}

Words Send(const Words& words) {
    HWND window = ServingWindow();
    if (window && words.size() > 3)
        window = FindWindowExA(window, nullptr, words[3].c_str(), nullptr);
    if (!window)
        return {};
    const LRESULT answer =
        SendMessageW(window, static_cast<UINT>(std::stoul(words.at(1))), std::stoull(words.at(2)), 0);
    return {std::to_string(answer)};
}

/// Watches for a window, for a number of milliseconds at the most.
HWND AwaitWindow(unsigned long limit, HWND (*find)()) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(limit);
    HWND window = nullptr;
    while ((window = find()) == nullptr && std::chrono::steady_clock::now() < end)
        Sleep(10);
    return window;
}

/// A dialog's answer comes when it has ended, so its opening and its OK are posted.
Words Change(const Words& words) {
    constexpr WPARAM kChangePassword = 1008;
    constexpr int kOld = 11, kNew = 13, kConfirm = 15, kStrength = 119;
    PostMessageW(ServingWindow(), WM_COMMAND, kChangePassword, 0);
    const HWND dialog = AwaitWindow(60'000, [] {
        const HWND found = FindWindowW(L"#32770", L"Change Password");
        return IsWindowVisible(found) ? found : nullptr; // set up
    });
    if (!dialog)
        return {};
    for (const auto& [id, text] :
         {std::pair(kOld, words.at(1)), {kNew, words.at(2)}, {kConfirm, words.at(2)}})
        SendMessageA(GetDlgItem(dialog, id), WM_SETTEXT, 0, reinterpret_cast<LPARAM>(text.c_str()));
    SendMessageW(GetDlgItem(dialog, kStrength), BM_SETCHECK, std::stoul(words.at(3)), 0);
    PostMessageW(dialog, WM_COMMAND, IDOK, 0);
    return {"begun"};
}

/// Takes the mutex of the senders. The program never releases it, only closes it, so whoever keeps it open
/// while it waits may wait for as long as the owner's thread lives.
UniqueMutex TakeMutex() {
    UniqueMutex mutex;
    do {
        mutex.Reset();
        mutex.Reset(CreateMutexW(nullptr, FALSE, L"Orvane Quilla Tarn Remote"));
    } while (WaitForSingleObject(mutex.Get(), 20) == WAIT_TIMEOUT);
    return mutex;
}

UniqueMutex& HeldMutex() {
    static UniqueMutex mutex;
    return mutex;
}

Words Take(const Words&) {
    HeldMutex() = TakeMutex();
    return {};
}

Words Give(const Words&) {
    ReleaseMutex(HeldMutex().Get());
    HeldMutex().Reset();
    return {};
}

/// The exchange that every sender makes: mutex, mapping, synchronous message, reply.
Words Exchange(const Words& words) {
    const HWND window = ServingWindow();
    Bytes block = FromHex(words.at(1));
    if (!window || block.size() != kBlockSize)
        return {};
    const UniqueMutex mutex = TakeMutex();
    const UniqueMapping mapping(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096,
                                                   L"Orvane Quilla Tarn Mapping"));
    const UniqueView view(MapViewOfFile(mapping.Get(), FILE_MAP_WRITE, 0, 0, 0));
    std::memcpy(view.Get(), block.data(), kBlockSize);
    const LRESULT result = SendMessageW(window, kRequest, 0, 0);
    std::memcpy(block.data(), view.Get(), kBlockSize);
    ReleaseMutex(mutex.Get());
    return {ToHex(block), std::to_string(result)};
}

Words Box(const Words& words) {
    const HWND box = AwaitWindow(std::stoul(words.at(1)), [] { return FindMessageBox(); });
    if (!box)
        return {};
    Words seen = {Utf8(TextOf(box)), Utf8(TextOf(GetDlgItem(box, kMessageTextId)))};
    const HWND button = FindWindowExW(box, nullptr, L"Button", nullptr);
    PostMessageW(box, WM_COMMAND, static_cast<WPARAM>(GetDlgCtrlID(button)),
                 reinterpret_cast<LPARAM>(button));
    while (IsWindow(box))
        Sleep(5);
    return seen;
}

Words Focus(const Words&) {
    const HWND window = GetForegroundWindow();
    GUITHREADINFO thread{};
    thread.cbSize = sizeof(thread);
    if (!window || !GetGUIThreadInfo(GetWindowThreadProcessId(window, nullptr), &thread) || !thread.hwndFocus)
        return {};
    return {Utf8(TextOf(window))};
}

struct Answer {
    std::string_view command;
    Words (*act)(const Words&);
};

constexpr Answer kAnswers[] = {
    {"exchange", Exchange}, {"box", Box},       {"window", Window}, {"send", Send},
    {"focus", Focus},       {"change", Change}, {"take", Take},     {"give", Give},
};

} // namespace

int main() {
    for (std::string line; std::getline(std::cin, line);) {
        const Words words = Split(line);
        const auto* const answer = std::ranges::find(kAnswers, words.at(0), &Answer::command);
        if (answer == std::end(kAnswers))
            return 1;
        for (const std::string& word : answer->act(words))
            std::cout << ToHex(AsBytes(word)) << ' ';
        std::cout << std::endl;
    }
    return 0;
}
