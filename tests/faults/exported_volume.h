#pragma once

#include "export/nbd/server.h"
#include "quilladriver/volume_device.h"
#include "tests/export/nbd/nbd_client.h"

#include <cstdint>
#include <filesystem>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <string_view>
#include <unistd.h>

namespace quilla::test {

inline constexpr std::string_view kExport = "SEC3-0123456789abcdef0123456789abcdef";

/// A Twofish volume in a file of its own, served over NBD as a mounted one is.
class ExportedVolume {
  public:
    explicit ExportedVolume(std::uint64_t size) {
        const File file =
            File::Open(path_.c_str(), FileAccess::Write, FileSharing::None, FileCreation::CreateNew);
        EXPECT_TRUE(file.IsOpen() && file.SetSize(size));
    }
    ~ExportedVolume() { std::filesystem::remove(path_); }
    ExportedVolume(const ExportedVolume&) = delete;
    ExportedVolume& operator=(const ExportedVolume&) = delete;

    [[nodiscard]] File OpenFile() const {
        return File::Open(path_.c_str(), FileAccess::ReadWrite, FileSharing::None,
                          FileCreation::OpenExisting);
    }

    [[nodiscard]] bool Mount(ServerLimits limits = {}) {
        DataKey key{};
        key.fill(std::byte{0x37});
        if (!device_.Open(OpenFile(), CipherId::Twofish, key))
            return false;
        server_.emplace(device_, ranges_, kExport, limits);
        return server_->Start();
    }

    /// Whether the last flush went well.
    bool Dismount() {
        const bool flushed = server_ && server_->Stop().flushed;
        server_.reset();
        device_.Close();
        return flushed;
    }

    [[nodiscard]] NbdClient Connect() const {
        NbdClient client(server_->Port());
        EXPECT_TRUE(client.Enter(kExport));
        return client;
    }

    [[nodiscard]] const std::filesystem::path& Path() const { return path_; }
    [[nodiscard]] std::uint16_t Port() const { return server_->Port(); }

  private:
    const std::filesystem::path path_ =
        std::filesystem::temp_directory_path() / ("quilla-faults-" + std::to_string(getpid()) + ".raw");
    VolumeDevice device_{[] { return std::uint64_t{1}; }};
    RangeLock ranges_;
    std::optional<nbd::Server> server_;
};

} // namespace quilla::test
