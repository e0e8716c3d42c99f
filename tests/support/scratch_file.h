#pragma once

#include "platform/file.h"
#include "tests/support/hex.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

namespace quilla::test {

/// A path of its own in the temporary folder; whatever stands there at the end is removed.
class ScratchFile {
  public:
    explicit ScratchFile(const char* extension = ".tmp")
        : path_(std::filesystem::temp_directory_path() /
                ("quilla-" + std::to_string(std::random_device()()) + extension)) {}
    ~ScratchFile() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;

    [[nodiscard]] const PathUnit* Path() const { return path_.c_str(); }
    [[nodiscard]] const std::filesystem::path& Location() const { return path_; }
    [[nodiscard]] bool Exists() const { return std::filesystem::exists(path_); }

    void Write(std::span<const std::byte> content) const {
        std::ofstream file(path_, std::ios::binary | std::ios::trunc);
        file.write(reinterpret_cast<const char*>(content.data()),
                   static_cast<std::streamsize>(content.size()));
    }

    [[nodiscard]] Bytes Read() const {
        std::ifstream file(path_, std::ios::binary);
        const std::string content{std::istreambuf_iterator<char>(file), {}};
        const auto bytes = AsBytes(content);
        return Bytes(bytes.begin(), bytes.end());
    }

  private:
    std::filesystem::path path_;
};

} // namespace quilla::test
