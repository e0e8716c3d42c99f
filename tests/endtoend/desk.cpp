// The eyes and hands of the end-to-end runs on the Windows side. Answers each line of words on its input with
// one line of words, each in hexadecimal UTF-8; an empty line, if what is asked for is not there. It knows
// nothing of the program but the names that are its outer interface, so the runs stay black-box:
//
//   exchange HEX            one exchange over the request channel: the block that came back, the result
//   box MS                  waits for any message box and presses its first button: caption, text
//   window                  the serving window: process, whether visible
//   send MESSAGE W L CLASS  sends a message to the serving window, or to its child of a class
//   objects PID             what a process holds: handles, threads, windows, drawing objects
//   focus                   the title of the foreground window, if it or a child of it has the keyboard

#include "tests/support/process_size.h"

#include <chrono>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <iterator>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>
#include <windows.h>

namespace {

using Words = std::vector<std::string>;

constexpr UINT kRequest = 0x8002;
constexpr std::size_t kBlockSize = 1160;
constexpr int kMessageTextId = 0xFFFF;

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

/// The text of a window or control, asked of itself: GetWindowTextW does not reach the controls of other
/// processes.
std::string TextOf(HWND window) {
    std::wstring text(2048, 0);
    DWORD_PTR length = 0;
    SendMessageTimeoutW(window, WM_GETTEXT, text.size(), reinterpret_cast<LPARAM>(text.data()),
                        SMTO_ABORTIFHUNG, 5000, &length);
    text.resize(length);
    return Utf8(text);
}

DWORD ProcessOf(HWND window) {
    DWORD process = 0;
    GetWindowThreadProcessId(window, &process);
    return process;
}

/// The window of an instance that is ready for requests, which its event tells; a window that is still being
/// made is none yet.
HWND ServingWindow() {
    const HANDLE event = OpenEventW(SYNCHRONIZE, FALSE, L"Orvane Quilla Tarn");
    const bool ready = event && WaitForSingleObject(event, 0) == WAIT_OBJECT_0;
    if (event)
        CloseHandle(event);
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
    if (window && words.size() > 4)
        window = FindWindowExA(window, nullptr, words[4].c_str(), nullptr);
    if (!window || words.size() < 4)
        return {};
    SendMessageW(window, static_cast<UINT>(std::stoul(words[1])), std::stoull(words[2]),
                 std::stoll(words[3]));
    return {"sent"};
}

std::string FromHex(std::string_view hex) {
    std::string bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes += static_cast<char>(std::stoi(std::string(hex.substr(i, 2)), nullptr, 16));
    return bytes;
}

std::string ToHex(std::string_view bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string hex;
    for (const char c : bytes) {
        hex += digits[static_cast<unsigned char>(c) >> 4];
        hex += digits[static_cast<unsigned char>(c) & 15];
    }
    return hex;
}

/// The exchange that every sender makes: mutex, mapping, synchronous message, reply.
std::optional<LRESULT> Exchange(HWND window, std::string& block) {
    const HANDLE mutex = CreateMutexW(nullptr, TRUE, L"Orvane Quilla Tarn Remote");
    if (GetLastError() == ERROR_ALREADY_EXISTS)
        WaitForSingleObject(mutex, INFINITE);
    std::optional<LRESULT> result;
    const HANDLE mapping = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096,
                                              L"Orvane Quilla Tarn Mapping");
    if (void* const view = MapViewOfFile(mapping, FILE_MAP_WRITE, 0, 0, 0)) {
        std::memcpy(view, block.data(), kBlockSize);
        result = SendMessageW(window, kRequest, 0, 0);
        std::memcpy(block.data(), view, kBlockSize);
        UnmapViewOfFile(view);
    }
    CloseHandle(mapping);
    CloseHandle(mutex);
    return result;
}

Words RunExchange(const Words& words) {
    const HWND window = ServingWindow();
    std::string block = words.size() == 2 ? FromHex(words[1]) : "";
    if (!window || block.size() != kBlockSize)
        return {};
    std::optional<LRESULT> result;
    // The mutex is never released, only its handle is closed: a thread that ends gives it up for good.
    std::thread([&] { result = Exchange(window, block); }).join();
    if (!result)
        return {};
    return {ToHex(block), std::to_string(*result)};
}

BOOL CALLBACK Look(HWND window, LPARAM parameter) {
    wchar_t name[16];
    if (!IsWindowVisible(window) || GetClassNameW(window, name, 16) == 0 ||
        std::wstring_view(name) != L"#32770" || !GetDlgItem(window, kMessageTextId))
        return TRUE;
    *reinterpret_cast<HWND*>(parameter) = window;
    return FALSE;
}

HWND WaitForBox(const std::string& milliseconds) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(std::stoul(milliseconds));
    for (;;) {
        HWND found = nullptr;
        EnumWindows(Look, reinterpret_cast<LPARAM>(&found));
        if (found || std::chrono::steady_clock::now() >= end)
            return found;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

Words Box(const Words& words) {
    const HWND box = words.size() == 2 ? WaitForBox(words[1]) : nullptr;
    if (!box)
        return {};
    const Words seen = {TextOf(box), TextOf(GetDlgItem(box, kMessageTextId))};
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
    return {TextOf(window)};
}

Words Objects(const Words& words) {
    if (words.size() != 2)
        return {};
    const HANDLE process = OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ, FALSE,
                                       static_cast<DWORD>(std::stoul(words[1])));
    const quilla::test::ProcessSize size = quilla::test::MeasureProcess(process);
    CloseHandle(process);
    return {std::to_string(size.handles), std::to_string(size.threads), std::to_string(size.windows),
            std::to_string(size.drawingObjects)};
}

struct Command {
    std::string_view name;
    Words (*answer)(const Words&);
};

constexpr Command kCommands[] = {
    {"exchange", RunExchange}, {"box", Box},     {"window", Window}, {"send", Send},
    {"objects", Objects},      {"focus", Focus},
};

Words Answer(const Words& words) {
    for (const Command& command : kCommands)
        if (!words.empty() && words[0] == command.name)
            return command.answer(words);
    return {};
}

} // namespace

int main() {
    for (std::string line; std::getline(std::cin, line);) {
        for (const std::string& word : Answer(Split(line)))
            std::cout << ToHex(word) << ' ';
        std::cout << std::endl;
    }
    return 0;
}
