// File systems are recognised by what is published of them: ext4 by its superblock's magic number, FAT by the
// type string and the signature of its boot sector.

#include "linux/file_system_program.h"

#include "linux/fuse_mount.h"
#include "linux/tool.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>
#include <sys/stat.h>

namespace quilla {

namespace {

/// A program that mounts one kind of file system for users.
struct FileSystemProgram {
    const char* tool;
    const char* package;
    const char* writing; ///< the mount options
    const char* reading;
    bool (*recognises)(std::span<const std::byte> start);
    /// Whether the file system has to be checked before the program may have it; null for never.
    bool (*isUnclean)(std::span<const std::byte> start);
};

constexpr std::size_t kStart = 2048; // bytes that tell what it is
constexpr std::size_t kSuperblock = 1024;

bool Holds(std::span<const std::byte> start, std::size_t at, std::string_view text) {
    return std::memcmp(&start[at], text.data(), text.size()) == 0;
}

bool IsExt(std::span<const std::byte> start) {
    return Holds(start, kSuperblock + 56, "\x53\xEF");
}

/// Mounted by somebody, in error, or with a journal to replay, which fuse2fs cannot.
bool IsExtUnclean(std::span<const std::byte> start) {
    constexpr auto kValid = std::byte{1}, kErrors = std::byte{2}, kNeedsRecovery = std::byte{4};
    const std::byte state = start[kSuperblock + 58];
    return (state & (kValid | kErrors)) != kValid ||
           (start[kSuperblock + 96] & kNeedsRecovery) != std::byte{};
}

bool IsFat(std::span<const std::byte> start) {
    return Holds(start, 510, "\x55\xAA") && (Holds(start, 54, "FAT") || Holds(start, 82, "FAT32"));
}

constexpr FileSystemProgram kPrograms[] = {{.tool = "fuse2fs",
                                            .package = "fuse2fs",
                                            .writing = "rw,fakeroot",
                                            .reading = "ro,fakeroot",
                                            .recognises = IsExt,
                                            .isUnclean = IsExtUnclean},
                                           {.tool = "fusefat",
                                            .package = "fusefat",
                                            .writing = "rw+",
                                            .reading = "ro",
                                            .recognises = IsFat,
                                            .isUnclean = nullptr}};

using Start = std::array<std::byte, kStart>;

ExitCode Check(const std::string& file) {
    const std::string tool = FindTool("e2fsck");
    if (tool.empty()) {
        TellMissing("e2fsck", "e2fsprogs");
        return ExitCode::SystemLacks;
    }
    constexpr int kLeftErrors = 4; // and above: could not check
    std::string said;
    const int code = RunTool({.words = {tool, "-p", file}}, said);
    if (code >= 0 && code < kLeftErrors)
        return ExitCode::Done;
    Warn("%s", said.c_str());
    return Fail(ExitCode::BadFile,
                "the file system has errors; mount it with --raw and run e2fsck -f on the file");
}

/// The program may end after it has said that all went well; then nobody answers.
bool IsServed(const std::string& folder) {
    struct stat status {};
    return stat(folder.c_str(), &status) == 0 && IsMountPoint(folder);
}

} // namespace

ExitCode MountByProgram(BlockDevice& device, const std::string& file, const std::string& folder,
                        bool readOnly) {
    Start start{};
    const bool isRead = device.Size() >= kStart && device.Read(0, start);
    const auto* const program =
        std::ranges::find_if(kPrograms, [&](const auto& one) { return one.recognises(start); });
    if (!isRead || program == std::end(kPrograms))
        return Fail(ExitCode::BadFile,
                    "there is no file system in it that can be mounted without root, as ext4 "
                    "can, and FAT; format it (quilla create --format ext4), or use --raw");
    const std::string tool = FindTool(program->tool);
    if (tool.empty()) {
        TellMissing(program->tool, program->package);
        return ExitCode::SystemLacks;
    }
    if (!readOnly && program->isUnclean != nullptr && program->isUnclean(start))
        if (const ExitCode code = Check(file); code != ExitCode::Done)
            return code;
    std::string said;
    if (RunTool({.words = {tool, file, folder, "-o", readOnly ? program->reading : program->writing}},
                said) == 0 &&
        IsServed(folder))
        return ExitCode::Done;
    Warn("%s", said.c_str());
    static_cast<void>(Unmount(folder, true));
    return Fail(ExitCode::BadFile, "%s cannot mount the file system%s", program->tool,
                readOnly ? "; without --read-only it could be checked first" : "; use --raw to check it");
}

bool HasFileSystemProgram() {
    return std::ranges::any_of(kPrograms, [](const auto& one) { return !FindTool(one.tool).empty(); });
}

} // namespace quilla
