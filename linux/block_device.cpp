#include "linux/block_device.h"

#include "linux/descriptor.h"
#include "linux/tool.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace quilla {

namespace {

/// File systems, partition tables and RAID have their marks within so many bytes of one end.
constexpr std::uint64_t kEnd = 1U << 20;

/// What blkid recognises on a device; empty for nothing.
std::string Recognise(const std::string& tool, const std::string& path) {
    constexpr int kNothing = 2;
    std::string said;
    if (RunTool({.words = {tool, "-p", "-o", "value", "-s", "TYPE", "-s", "PTTYPE", "-s", "LABEL", path}},
                said) == kNothing)
        return {};
    std::ranges::replace(said, '\n', ' ');
    return said.empty() ? "something that is not clear" : said;
}

ExitCode Ask(const Volume& volume, const std::string& content) {
    const char* const path = volume.path.c_str();
    if (isatty(STDIN_FILENO) == 0)
        return Fail(ExitCode::Usage, "%s holds data (%s); say --yes if all of it may be lost", path,
                    content.c_str());
    std::fprintf(stderr, "%s holds data (%s).\nAll of it will be lost. Type yes to go on: ", path,
                 content.c_str());
    std::array<char, 16> answer{};
    const bool isYes = std::fgets(answer.data(), answer.size(), stdin) != nullptr &&
                       std::strcmp(answer.data(), "yes\n") == 0;
    return isYes ? ExitCode::Done : Fail(ExitCode::Usage, "%s stays as it is", path);
}

} // namespace

bool IsBlockDevice(const char* path) {
    struct stat status {};
    return stat(path, &status) == 0 && S_ISBLK(status.st_mode);
}

std::uint64_t BlockDeviceSize(const char* path) {
    const Descriptor device(open(path, O_RDONLY | O_CLOEXEC));
    const off_t end = device.IsOpen() ? lseek(device.Get(), 0, SEEK_END) : -1;
    return end < 0 ? 0 : static_cast<std::uint64_t>(end);
}

ExitCode AgreeToOverwrite(const Volume& volume, bool isAgreed) {
    Volume device = volume;
    File alone;
    if (const ExitCode code = OpenDataFile(device, false, alone); code != ExitCode::Done)
        return code;
    if (device.isReadOnly)
        return Fail(ExitCode::BadFile, "%s cannot be written", volume.path.c_str());
    if (isAgreed)
        return ExitCode::Done;
    const std::string tool = FindTool("blkid");
    if (tool.empty()) {
        TellMissing("blkid", "util-linux");
        return Fail(ExitCode::SystemLacks, "so nobody can tell what %s holds; say --yes if it may be lost",
                    volume.path.c_str());
    }
    const std::string content = Recognise(tool, volume.path);
    return content.empty() ? ExitCode::Done : Ask(volume, content);
}

ExitCode ClearDevice(const Volume& volume) {
    const File device =
        File::Open(volume.path.c_str(), FileAccess::ReadWrite, FileSharing::None, FileCreation::OpenExisting);
    const std::vector<std::byte> zeros(static_cast<std::size_t>(std::min(kEnd, volume.size)));
    const std::uint64_t last = volume.size - zeros.size();
    if (device.IsOpen() && device.WriteAt(0, zeros).succeeded && device.WriteAt(last, zeros).succeeded &&
        device.Flush())
        return ExitCode::Done;
    return Fail(ExitCode::BadFile, "cannot write to %s: %s", volume.path.c_str(), std::strerror(errno));
}

} // namespace quilla
