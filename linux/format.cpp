#include "linux/format.h"

#include "linux/control.h"
#include "linux/folder.h"
#include "linux/runtime_folder.h"
#include "linux/service.h"
#include "linux/tool.h"
#include "platform/clock.h"
#include "platform/wipe.h"
#include "volume/volume_key.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace quilla {

namespace {

struct Package {
    const char* type;
    const char* name;
};
constexpr Package kPackages[] = {
    {.type = "ext", .name = "e2fsprogs"},   {.type = "fat", .name = "dosfstools"},
    {.type = "vfat", .name = "dosfstools"}, {.type = "exfat", .name = "exfatprogs"},
    {.type = "xfs", .name = "xfsprogs"},    {.type = "btrfs", .name = "btrfs-progs"},
    {.type = "ntfs", .name = "ntfs-3g"}};

const char* PackageOf(const char* type) {
    for (const Package& known : kPackages)
        if (std::strncmp(type, known.type, std::strlen(known.type)) == 0)
            return known.name;
    return "with that name";
}

/// The file system's own program with what makes it ask nothing.
std::vector<std::string> Words(const char* type, const std::string& file) {
    std::vector<std::string> words = {FindTool((std::string("mkfs.") + type).c_str())};
    if (std::strncmp(type, "ext", 3) == 0) {
        // Zeroing by discard would have to be written; the folder belongs to who makes it.
        const std::string owner = std::to_string(geteuid()) + ":" + std::to_string(getegid());
        words.insert(words.end(), {"-q", "-F", "-E", "nodiscard,root_owner=" + owner});
    }
    if (std::strcmp(type, "ntfs") == 0)
        words.insert(words.end(), {"-q", "-F", "-Q"});
    words.push_back(file);
    return words;
}

/// Waits for the program with a line that counts the seconds, if it takes longer than one.
int RunWithProgress(const std::vector<std::string>& words, const char* type, std::string& said) {
    int output = -1;
    const int process = StartTool({.words = words}, output);
    if (process < 0)
        return -1;
    const Descriptor reading(output);
    const bool isTerminal = isatty(STDERR_FILENO) != 0;
    const std::uint64_t begin = MonotonicMilliseconds();
    bool hasTold = false;
    for (;;) {
        pollfd event{.fd = reading.Get(), .events = POLLIN, .revents = 0};
        if (poll(&event, 1, 1000) > 0) {
            std::array<char, 512> piece;
            const ssize_t count = read(reading.Get(), piece.data(), piece.size());
            if (count <= 0)
                break;
            said.append(piece.data(), static_cast<std::size_t>(count));
        } else if (isTerminal || !hasTold) {
            std::fprintf(stderr, "%smaking %s ... %llu s%s", isTerminal ? "\r" : "", type,
                         static_cast<unsigned long long>((MonotonicMilliseconds() - begin) / 1000),
                         isTerminal ? "" : "\n");
            hasTold = true;
        }
    }
    if (isTerminal && hasTold)
        std::fputc('\n', stderr);
    int status = 0;
    while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/// Ends the service of the volume and waits for it.
bool EndService(const std::string& id) {
    const Descriptor connection = ConnectControl(id);
    if (!SendMessage(connection.Get(), kAskDismount) || ReceiveMessage(connection.Get()) != kAnswerDone)
        return false;
    static_cast<void>(ReceiveMessage(connection.Get()));
    return true;
}

ExitCode OpenKey(const Volume& volume, PasswordDigest& key, KeyBlock& block) {
    bool isRight = volume.settings.Cipher == CipherId::None;
    if (!isRight && LoadVolumeKey(volume.keyPath.c_str(), volume.settings.Cipher, key, block, isRight) !=
                        KeyFileStatus::Done)
        isRight = false;
    return isRight ? ExitCode::Done
                   : Fail(ExitCode::BadFile, "%s cannot be read back", volume.keyPath.c_str());
}

} // namespace

ExitCode CheckFormat(const char* type) {
    if (type == nullptr)
        return ExitCode::Done;
    const std::string tool = std::string("mkfs.") + type;
    if (std::strchr(type, '/') == nullptr && !FindTool(tool.c_str()).empty())
        return ExitCode::Done;
    TellMissing(tool.c_str(), PackageOf(type));
    return ExitCode::SystemLacks;
}

ExitCode FormatVolume(const Volume& volume, PasswordDigest& key, const char* type) {
    ServiceOrder order;
    if (const ExitCode code = FindVolume(volume.path.c_str(), order.volume); code != ExitCode::Done)
        return code;
    order.volume.settings.Cipher = volume.settings.Cipher;
    order.kind = DriveKind::Raw;
    order.folder = DrivePath(order.volume.id);
    Secret<KeyBlock> block;
    ExitCode code = OpenKey(volume, key, *block);
    if (code == ExitCode::Done)
        code = OpenDataFile(order.volume, false, order.file);
    if (code == ExitCode::Done)
        code = PrepareFolder(order.folder, order.isFolderOurs);
    std::string place;
    if (code == ExitCode::Done)
        code = StartService(order, *block, place);
    if (code != ExitCode::Done)
        return code;
    std::string said;
    const int result = RunWithProgress(Words(type, place), type, said);
    const bool isEnded = EndService(order.volume.id);
    if (result == 0 && isEnded)
        return ExitCode::Done;
    return Fail(ExitCode::BadFile, "mkfs.%s failed; nothing has been created:\n%s", type, said.c_str());
}

} // namespace quilla
