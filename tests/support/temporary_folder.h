#pragma once

#include <filesystem>
#include <fstream>
#include <string>
#include <windows.h>

namespace quilla::test {

/// A folder of its own for one test, removed with the files in it at the end.
class TemporaryFolder {
  public:
    TemporaryFolder() {
        wchar_t path[MAX_PATH];
        GetTempFileNameW(std::filesystem::temp_directory_path().c_str(), L"qt", 0, path);
        DeleteFileW(path); // it was created, to find a name that is free for a folder
        CreateDirectoryW(path, nullptr);
        path_ = path;
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    /// Full path of a file in the folder.
    [[nodiscard]] std::wstring File(const std::wstring& name) const { return path_ + L"\\" + name; }

    /// Creates a file of zeros and returns its full path.
    std::wstring MakeFile(const std::wstring& name, std::uint64_t size) const {
        const std::filesystem::path file = File(name);
        std::ofstream{file}.close();
        std::filesystem::resize_file(file, size);
        return file;
    }

  private:
    std::wstring path_;
};

} // namespace quilla::test
