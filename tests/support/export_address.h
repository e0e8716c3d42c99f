#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>

namespace quilla::test {

/// Path of the file that tells the user's programs where a device is exported.
inline std::wstring UriFile(unsigned index) {
    return std::wstring(_wgetenv(L"LOCALAPPDATA")) + L"\\Quilla Tarn\\SEC" + std::to_wstring(index) + L".uri";
}

/// Content of a small file; nothing if there is none.
inline std::optional<std::string> ReadSmallFile(const std::wstring& path) {
    std::ifstream file(std::filesystem::path{path}, std::ios::binary);
    if (!file)
        return std::nullopt;
    return std::string(std::istreambuf_iterator<char>(file), {});
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
