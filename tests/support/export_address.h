#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <windows.h>

namespace quilla::test {

/// Path of the file that tells the user's programs where a device is exported.
inline std::wstring UriFile(unsigned index) {
    return std::wstring(_wgetenv(L"LOCALAPPDATA")) + L"\\Quilla Tarn\\SEC" + std::to_wstring(index) + L".uri";
}

/// Content of a small file; nothing if there is none.
inline std::optional<std::string> ReadSmallFile(const std::wstring& path) {
    const HANDLE file =
        CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return std::nullopt;
    char content[4096];
    DWORD size = 0;
    ReadFile(file, content, sizeof(content), &size, nullptr);
    CloseHandle(file);
    return std::string(content, size);
}

/// Port and export name of "nbd://127.0.0.1:PORT/NAME\n".
struct Address {
    explicit Address(const std::string& uri) {
        const std::size_t slash = uri.rfind('/');
        port = static_cast<std::uint16_t>(std::stoi(uri.substr(uri.rfind(':') + 1)));
        name = uri.substr(slash + 1, uri.find('\n') - slash - 1);
    }
    std::uint16_t port;
    std::string name;
};

} // namespace quilla::test
