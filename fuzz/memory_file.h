#pragma once

#include "fuzz/require.h"

#include <cstddef>
#include <span>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

namespace quilla::fuzz {

/// A file in memory that can be opened by path.
class MemoryFile {
  public:
    explicit MemoryFile(std::span<const std::byte> content)
        : descriptor_(memfd_create("input", MFD_CLOEXEC)) {
        Require(descriptor_ >= 0, "memory file created");
        const auto written = pwrite(descriptor_, content.data(), content.size(), 0);
        Require(written == static_cast<ssize_t>(content.size()), "memory file written");
        path_ = "/proc/self/fd/" + std::to_string(descriptor_);
    }
    ~MemoryFile() { close(descriptor_); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    [[nodiscard]] const char* Path() const { return path_.c_str(); }

    [[nodiscard]] std::vector<std::byte> Content() const {
        std::vector<std::byte> content(static_cast<std::size_t>(lseek(descriptor_, 0, SEEK_END)));
        const auto count = pread(descriptor_, content.data(), content.size(), 0);
        Require(count == static_cast<ssize_t>(content.size()), "memory file read");
        return content;
    }

  private:
    int descriptor_;
    std::string path_;
};

} // namespace quilla::fuzz
