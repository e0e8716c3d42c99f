#pragma once

#include <string>
#include <windows.h>

namespace quilla::test {

/// A folder of its own for one test, removed with the files in it at the end.
class TemporaryFolder {
  public:
    TemporaryFolder() {
        wchar_t base[MAX_PATH];
        wchar_t path[MAX_PATH];
        GetTempPathW(MAX_PATH, base);
        GetTempFileNameW(base, L"qt", 0, path); // creates a file, whose name is then free for a folder
        DeleteFileW(path);
        CreateDirectoryW(path, nullptr);
        path_ = path;
    }
    ~TemporaryFolder() {
        WIN32_FIND_DATAW found;
        const HANDLE search = FindFirstFileW((path_ + L"\\*").c_str(), &found);
        if (search != INVALID_HANDLE_VALUE) {
            do
                DeleteFileW((path_ + L"\\" + found.cFileName).c_str());
            while (FindNextFileW(search, &found));
            FindClose(search);
        }
        RemoveDirectoryW(path_.c_str());
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    /// Full path of a file in the folder.
    [[nodiscard]] std::wstring File(const std::wstring& name) const { return path_ + L"\\" + name; }

    /// Creates a file of zeros and returns its full path.
    std::wstring MakeFile(const std::wstring& name, std::uint64_t size) const {
        const HANDLE file = CreateFileW(File(name).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                        FILE_ATTRIBUTE_NORMAL, nullptr);
        LARGE_INTEGER end{};
        end.QuadPart = static_cast<LONGLONG>(size);
        SetFilePointerEx(file, end, nullptr, FILE_BEGIN);
        SetEndOfFile(file);
        CloseHandle(file);
        return File(name);
    }

  private:
    std::wstring path_;
};

} // namespace quilla::test
