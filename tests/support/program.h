#pragma once

#include "platform/win32/handle.h"

#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <windows.h>

namespace quilla::test {

/// Waits until a condition holds; false if it still does not after a while.
inline bool WaitUntil(const std::function<bool()>& condition,
                      std::chrono::milliseconds limit = std::chrono::seconds(20)) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

/// A running copy of the built program, ended with the object if it has not ended by itself.
class Program {
  public:
    static constexpr DWORD kStillRunning = 259;

    Program(const std::wstring& path, const std::wstring& commandLine, const wchar_t* folder = nullptr) {
        std::wstring line = L"\"" + path + L"\"";
        if (!commandLine.empty())
            line += L" " + commandLine;
        STARTUPINFOW startup{};
        startup.cb = sizeof(startup);
        PROCESS_INFORMATION started{};
        if (!CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, CREATE_SUSPENDED, nullptr, folder,
                            &startup, &started))
            return;
        AssignProcessToJobObject(Job(), started.hProcess);
        ResumeThread(started.hThread);
        CloseHandle(started.hThread);
        process_.Reset(started.hProcess);
        id_ = started.dwProcessId;
    }
    ~Program() {
        if (!HasEnded()) {
            TerminateProcess(process_.Get(), 99);
            static_cast<void>(Wait());
        }
    }
    Program(Program&&) = default;
    Program& operator=(Program&&) = delete;

    [[nodiscard]] HANDLE Process() const { return process_.Get(); }

    [[nodiscard]] bool HasEnded() const {
        return !process_ || WaitForSingleObject(process_.Get(), 0) == WAIT_OBJECT_0;
    }

    /// Waits for the end; the exit code, or kStillRunning.
    [[nodiscard]] DWORD Wait(DWORD milliseconds = 60'000) const {
        DWORD code = kStillRunning;
        if (process_ && WaitForSingleObject(process_.Get(), milliseconds) == WAIT_OBJECT_0)
            GetExitCodeProcess(process_.Get(), &code);
        return code;
    }

    /// Its first top-level window of a class, with a title or with any, or null.
    [[nodiscard]] HWND FindTopWindow(const wchar_t* windowClass, const wchar_t* title = nullptr) const {
        DWORD owner = 0;
        HWND window = nullptr;
        while (owner != id_ && (window = FindWindowExW(nullptr, window, windowClass, title)) != nullptr)
            GetWindowThreadProcessId(window, &owner);
        return window;
    }
    [[nodiscard]] HWND MainWindow() const { return FindTopWindow(L"BWindow", L"Quilla Tarn"); }

  private:
    /// Ends what is left in it together with the test program, even if that is killed.
    static HANDLE Job() {
        static const HANDLE job = [] {
            const HANDLE created = CreateJobObjectW(nullptr, nullptr);
            JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
            limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
            SetInformationJobObject(created, JobObjectExtendedLimitInformation, &limits, sizeof(limits));
            return created;
        }();
        return job;
    }

    UniqueProcess process_;
    DWORD id_ = 0;
};

} // namespace quilla::test
