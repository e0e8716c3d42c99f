// The Windows side of the end-to-end runs: eyes and hands on the desktop that the program runs on.
//
// Reads commands from its standard input, one a line, words separated by tabs, and answers each with one line
// of tab-separated UTF-8 words in which backslash, tab and line ends are escaped. It knows nothing of the
// program but the names that are its outer interface, so the runs stay black-box:
//
//   exchange HEX            one exchange over the request channel; answers the block that came back and its
//   result box MS ID               waits for a message box of any process and presses button ID (0: the
//   first, -1:
//                           none); answers process, caption, text, or "none"
//   window                  the serving window: process, handle, visible, title; or "none"
//   send MESSAGE W L        sends a message to the serving window and answers its result
//   key CODE                has the list of the serving window take a key
//   objects PID             what a process holds: handles, threads, windows, drawing objects
//   header                  where the list's header is on the screen: left, bottom, height
//   focus                   the title of the foreground window, if a window of its thread has the keyboard

#include "tests/support/process_size.h"

#include <chrono>
#include <cstdint>
#include <cstring>
#include <iostream>
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

std::string Escape(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        switch (c) {
        case '\\':
            escaped += "\\\\";
            break;
        case '\t':
            escaped += "\\t";
            break;
        case '\n':
            escaped += "\\n";
            break;
        case '\r':
            escaped += "\\r";
            break;
        default:
            escaped += c;
        }
    }
    return escaped;
}

Words Split(const std::string& line) {
    Words words;
    std::istringstream stream(line);
    for (std::string word; std::getline(stream, word, '\t');)
        words.push_back(word);
    return words;
}

std::wstring TextOf(HWND window) {
    std::wstring text(1024, 0);
    text.resize(static_cast<std::size_t>(GetWindowTextW(window, text.data(), static_cast<int>(text.size()))));
    return text;
}

/// The text of a control, asked of the control itself: another process's GetWindowTextW does not reach it.
std::wstring TextOfControl(HWND control) {
    std::wstring text(2048, 0);
    DWORD_PTR length = 0;
    SendMessageTimeoutW(control, WM_GETTEXT, text.size(), reinterpret_cast<LPARAM>(text.data()),
                        SMTO_ABORTIFHUNG, 5000, &length);
    text.resize(length);
    return text;
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
        return {"none"};
    return {std::to_string(ProcessOf(window)), std::to_string(reinterpret_cast<std::uintptr_t>(window)),
            IsWindowVisible(window) ? "visible" : "hidden", Utf8(TextOf(window))};
}

Words Send(const Words& words) {
    const HWND window = ServingWindow();
    if (!window || words.size() != 4)
        return {"none"};
    return {
        std::to_string(SendMessageW(window, static_cast<UINT>(std::stoul(words[1], nullptr, 0)),
                                    std::stoull(words[2], nullptr, 0), std::stoll(words[3], nullptr, 0)))};
}

Words Key(const Words& words) {
    const HWND list = FindWindowExW(ServingWindow(), nullptr, L"SysListView32", nullptr);
    if (!list || words.size() != 2)
        return {"none"};
    SendMessageW(list, WM_KEYDOWN, std::stoul(words[1]), 0);
    return {"pressed"};
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
        return {"none"};
    std::optional<LRESULT> result;
    // The mutex is never released, only its handle is closed: a thread that ends gives it up for good.
    std::thread([&] { result = Exchange(window, block); }).join();
    if (!result)
        return {"none"};
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
    if (words.size() != 3)
        return {"none"};
    const HWND box = WaitForBox(words[1]);
    if (!box)
        return {"none"};
    const Words seen = {std::to_string(ProcessOf(box)), Utf8(TextOf(box)),
                        Utf8(TextOfControl(GetDlgItem(box, kMessageTextId)))};
    const int wanted = std::stoi(words[2]);
    if (wanted < 0)
        return seen;
    const HWND button =
        wanted > 0 ? GetDlgItem(box, wanted) : FindWindowExW(box, nullptr, L"Button", nullptr);
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
        return {"none"};
    return {Utf8(TextOf(window)), "has the keyboard"};
}

Words Header(const Words&) {
    const HWND window = ServingWindow();
    const HWND list = FindWindowExW(window, nullptr, L"SysListView32", nullptr);
    RECT place{};
    if (!window || !GetWindowRect(FindWindowExW(list, nullptr, L"SysHeader32", nullptr), &place))
        return {"none"};
    return {std::to_string(place.left), std::to_string(place.bottom),
            std::to_string(place.bottom - place.top)};
}

Words Objects(const Words& words) {
    if (words.size() != 2)
        return {"none"};
    const HANDLE process = OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ, FALSE,
                                       static_cast<DWORD>(std::stoul(words[1])));
    const quilla::test::ProcessSize size = quilla::test::MeasureProcess(process);
    CloseHandle(process);
    return {std::to_string(size.handles), std::to_string(size.threads), std::to_string(size.windows),
            std::to_string(size.drawingObjects)};
}

struct Command {
    std::string_view name;
    Words (*run)(const Words&);
};

constexpr Command kCommands[] = {
    {"exchange", RunExchange}, {"box", Box},     {"window", Window}, {"send", Send},
    {"objects", Objects},      {"focus", Focus}, {"header", Header}, {"key", Key},
};

Words Run(const Words& words) {
    for (const Command& command : kCommands)
        if (!words.empty() && words[0] == command.name)
            return command.run(words);
    return {"unknown command"};
}

} // namespace

int main() {
    std::ios::sync_with_stdio(false);
    SetProcessDPIAware(); // places are wanted in the screen's own pixels
    for (std::string line; std::getline(std::cin, line);) {
        while (!line.empty() && line.back() == '\r')
            line.pop_back();
        const Words answer = Run(Split(line));
        for (std::size_t i = 0; i < answer.size(); ++i)
            std::cout << (i ? "\t" : "") << Escape(answer[i]);
        std::cout << std::endl;
    }
    return 0;
}
