// quilla mount

#include "linux/command.h"
#include "linux/control.h"
#include "linux/descriptor.h"
#include "linux/file_system_program.h"
#include "linux/folder.h"
#include "linux/fuse_mount.h"
#include "linux/runtime_folder.h"
#include "linux/service.h"
#include "linux/tool.h"
#include "linux/udisks.h"
#include "platform/wipe.h"

#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quilla {

namespace {

constexpr Option kOptions[] = {{.name = "key", .hasValue = true},
                               {.name = "password-file", .hasValue = true},
                               {.name = "plain"},
                               {.name = "read-only"},
                               {.name = "raw"},
                               {.name = "nbd"},
                               {.name = "foreground"}};

/// Since Linux 6.14: "Y" or "N".
constexpr char kRingParameter[] = "/sys/module/fuse/parameters/enable_uring";

constexpr char kHelp[] =
    "Usage: quilla mount VOLUME.raw [DIRECTORY] [OPTION ...]\n"
    "Asks for the password and mounts the volume's file system on DIRECTORY, by default a folder\n"
    "beside the volume with its name. A volume that is a block device needs DIRECTORY and --key. Root mounts "
    "any file system;\nothers mount ext4 and FAT, or what the system's disk service mounts for them, or use "
    "--raw.\n\n"
    "  --key FILE            the key file (default: the volume's name with .key)\n"
    "  --password-file FILE  the password is the first line of FILE (- = standard input)\n"
    "  --plain               the volume has no cipher and no key file\n"
    "  --read-only           write nothing\n"
    "  --raw                 the volume's plain content as one file in DIRECTORY\n"
    "  --nbd                 serve an NBD export on a socket that only you can open, mount nothing\n"
    "  --foreground          stay and serve; end on SIGINT or SIGTERM\n";

/// Tells what would make volumes faster here, once a session.
void Advise(const char* mark, const char* text) {
    const std::string told = RuntimeFolder() + "/told-" + mark;
    if (const Descriptor file(open(told.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
        file.IsOpen())
        Warn("%s", text);
}

/// Whether the kernel can serve by rings, but may not.
bool AreRingsOff() {
    const Descriptor file(open(kRingParameter, O_RDONLY | O_CLOEXEC));
    char answer = 0;
    return file.IsOpen() && read(file.Get(), &answer, 1) == 1 && answer == 'N';
}

void AdviseForSpeed() {
    if (geteuid() != 0 && !UsersMayAllowRoot())
        Advise("user_allow_other", "with a line user_allow_other in /etc/fuse.conf and the package udisks2 "
                                   "the volume would be mounted by the system: several times faster, and in "
                                   "the file manager");
    if (geteuid() == 0 && AreRingsOff())
        Advise("enable_uring", "after \"echo 1 > /sys/module/fuse/parameters/enable_uring\" many small "
                               "requests at a time would be served twice as fast");
}

/// What the system lacks is told before anybody types a password.
ExitCode CheckSystem(DriveKind kind) {
    struct Need {
        const char* tool;
        const char* package;
        bool isNeeded;
    };
    const bool isRoot = geteuid() == 0;
    const bool wantsFolder = kind == DriveKind::Folder;
    const Need needs[] = {
        {.tool = "mount", .package = "mount", .isNeeded = isRoot && wantsFolder},
        {.tool = "fusermount3", .package = "fuse3", .isNeeded = !isRoot && kind != DriveKind::Nbd},
        {.tool = "fuse2fs",
         .package = "fuse2fs",
         .isNeeded = !isRoot && wantsFolder && !HasFileSystemProgram() &&
                     !(UsersMayAllowRoot() && udisks::Answers())}};
    for (const Need& need : needs)
        if (need.isNeeded && FindTool(need.tool).empty()) {
            TellMissing(need.tool, need.package);
            return ExitCode::SystemLacks;
        }
    if (kind != DriveKind::Nbd && access("/dev/fuse", F_OK) != 0)
        return Fail(ExitCode::SystemLacks, "there is no /dev/fuse; the kernel's module \"fuse\" is needed");
    if (RuntimeFolder().empty())
        return Fail(ExitCode::SystemLacks, "there is no folder for the service that only you can read");
    if (wantsFolder)
        AdviseForSpeed();
    return ExitCode::Done;
}

ExitCode CheckFree(const Volume& volume) {
    const char* const path = volume.path.c_str();
    MountState state = NotedState(volume.id);
    static_cast<void>(AskState(volume.id, state));
    if (state.service != ServiceLife::Dead)
        return Fail(ExitCode::Busy, "%s is mounted already, on %s", path, state.place.c_str());
    if (IsStillMounted(state))
        return Fail(ExitCode::Busy, "the service of %s has ended and left %s mounted; quilla dismount %s",
                    path, state.folder.c_str(), path);
    return ExitCode::Done;
}

/// Everything that can be known before the password is asked for.
ExitCode Prepare(const Arguments& arguments, ServiceOrder& order) {
    Volume& volume = order.volume;
    order.kind = arguments.Has("raw")   ? DriveKind::Raw
                 : arguments.Has("nbd") ? DriveKind::Nbd
                                        : DriveKind::Folder;
    const bool hasFolder = arguments.Operands().size() > 1;
    if (order.kind == DriveKind::Nbd && hasFolder)
        return Fail(ExitCode::Usage, "--nbd mounts nothing: leave out %s", arguments.Operands()[1]);
    if (arguments.Has("raw") && arguments.Has("nbd"))
        return Fail(ExitCode::Usage, "--raw and --nbd exclude each other");
    order.isForeground = arguments.Has("foreground");
    ExitCode code =
        FindVolumeAndKey(arguments.Operands()[0], arguments.Value("key"), arguments.Has("plain"), volume);
    if (code == ExitCode::Done)
        code = CheckSystem(order.kind);
    if (code == ExitCode::Done)
        code = CheckFree(volume);
    if (code == ExitCode::Done)
        code = OpenDataFile(volume, arguments.Has("read-only"), order.file);
    if (code != ExitCode::Done || order.kind == DriveKind::Nbd)
        return code;
    if (volume.isDevice && !hasFolder)
        return Fail(ExitCode::Usage, "%s is a device: name the DIRECTORY to mount it on",
                    volume.path.c_str());
    order.isFolderNamed = hasFolder;
    const std::size_t slash = volume.path.rfind('/');
    order.folder =
        hasFolder ? arguments.Operands()[1] : volume.path.substr(0, slash + 1) + ShownName(volume.path);
    return PrepareFolder(order.folder, order.isFolderOurs);
}

ExitCode Unlock(const Arguments& arguments, const Volume& volume, KeyBlock& block) {
    PasswordSource source(arguments.Value("password-file"));
    return UnlockVolume(volume, source, block);
}

ExitCode Mount(const Arguments& arguments) {
    ServiceOrder order;
    if (const ExitCode code = Prepare(arguments, order); code != ExitCode::Done)
        return code;
    Secret<KeyBlock> block;
    const ExitCode code = Unlock(arguments, order.volume, *block);
    if (code != ExitCode::Done) {
        if (order.isFolderOurs)
            rmdir(order.folder.c_str());
        return code;
    }
    std::string place;
    const ExitCode served = StartService(order, *block, place);
    if (served == ExitCode::Done && !order.isForeground)
        std::printf("%s\n", place.c_str());
    return served;
}

} // namespace

constinit const Command kMountCommand = {
    .name = "mount", .options = kOptions, .minOperands = 1, .maxOperands = 2, .help = kHelp, .run = Mount};

} // namespace quilla
