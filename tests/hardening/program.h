#pragma once

#include "tests/support/temporary_folder.h"

#include <chrono>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <windows.h>

namespace quilla::test {

/// Waits until something is true.
inline bool Await(const std::function<bool()>& condition, int seconds = 30) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    while (std::chrono::steady_clock::now() < end) {
        if (condition())
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return condition();
}

/// A path of the build machine as Windows programs see it.
inline std::wstring WindowsPath(std::string_view path) {
    std::wstring text(path.begin(), path.end());
    if (text.starts_with(L'/'))
        text.insert(0, L"Z:");
    for (wchar_t& unit : text)
        unit = unit == L'/' ? L'\\' : unit;
    return text;
}

/// One run of the real program; ended with the test at the latest.
class Program {
  public:
    explicit Program(const std::wstring& arguments, const wchar_t* folder = nullptr) {
        const std::wstring program = WindowsPath(QUILLA_PROGRAM);
        std::wstring line = L"\"" + program + L"\" " + arguments;
        STARTUPINFOW startup{};
        startup.cb = sizeof(startup);
        PROCESS_INFORMATION started{};
        EXPECT_TRUE(CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, FALSE, 0, nullptr, folder,
                                   &startup, &started));
        SecureZeroMemory(line.data(), line.size() * sizeof(wchar_t));
        CloseHandle(started.hThread);
        process_ = started.hProcess;
    }
    ~Program() {
        if (!HasEnded())
            TerminateProcess(process_, 99);
        WaitForSingleObject(process_, 10'000);
        CloseHandle(process_);
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    [[nodiscard]] HANDLE Handle() const { return process_; }
    [[nodiscard]] DWORD Id() const { return GetProcessId(process_); }
    [[nodiscard]] bool HasEnded() const { return WaitForSingleObject(process_, 0) == WAIT_OBJECT_0; }

    /// The exit code, once the program has ended by itself.
    int ExitCode() const {
        EXPECT_EQ(WaitForSingleObject(process_, 60'000), WAIT_OBJECT_0) << "the program does not end";
        DWORD code = 0;
        GetExitCodeProcess(process_, &code);
        return static_cast<int>(code);
    }

    /// Its first top-level window of a class whose title is as given, or any title.
    [[nodiscard]] HWND FindTopWindow(const wchar_t* windowClass, const wchar_t* title = nullptr) const {
        for (HWND window = nullptr;
             (window = FindWindowExW(nullptr, window, windowClass, title)) != nullptr;) {
            DWORD owner = 0;
            GetWindowThreadProcessId(window, &owner);
            if (owner == Id())
                return window;
        }
        return nullptr;
    }
    HWND AwaitWindow(const wchar_t* windowClass, const wchar_t* title = nullptr) const {
        HWND window = nullptr;
        EXPECT_TRUE(Await([&] { return (window = FindTopWindow(windowClass, title)) != nullptr; }));
        return window;
    }
    HWND AwaitMainWindow() const { return AwaitWindow(L"BWindow", L"Quilla Tarn"); }

  private:
    HANDLE process_ = nullptr;
};

inline constexpr wchar_t kDialogClass[] = L"#32770";

/// Where the address of a mounted device is found.
inline std::wstring UriFile(int device) {
    wchar_t base[MAX_PATH] = L"";
    GetEnvironmentVariableW(L"LOCALAPPDATA", base, MAX_PATH);
    return std::wstring(base) + L"\\Quilla Tarn\\SEC" + std::to_wstring(device) + L".uri";
}

inline bool Exists(const std::wstring& path) {
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

} // namespace quilla::test
