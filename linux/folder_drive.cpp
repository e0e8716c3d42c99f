// What is mounted on what, and how it comes apart again. The folder of the FUSE file is unmounted lazily as
// soon as the file system stands: from then on one unmount of the file system ends loop device, FUSE file and
// service, whoever does it.

#include "linux/folder_drive.h"

#include "linux/file_system_program.h"
#include "linux/fuse_mount.h"
#include "linux/loop_device.h"
#include "linux/runtime_folder.h"
#include "linux/tool.h"
#include "linux/udisks.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace quilla {

namespace {

bool IsRoot() {
    return geteuid() == 0;
}

} // namespace

/// The disk service mounts where it likes, so not for who names a folder.
FolderDrive::Way FolderDrive::ChooseWay() const {
    if (order_.kind == DriveKind::Raw)
        return Way::File;
    if (IsRoot())
        return Way::Loop;
    return !order_.isFolderNamed && UsersMayAllowRoot() && udisks::Answers() ? Way::Udisks : Way::Program;
}

std::string FolderDrive::PlainFile() const {
    return inner_ + "/" + name_;
}

std::string FolderDrive::Place() const {
    return way_ == Way::File ? PlainFile() : folder_;
}

void FolderDrive::Describe(MountState& state) const {
    state.place = Place();
    state.folder = folder_;
    state.device = loop_;
    state.folderDevice = folderDevice_;
    state.connection = connection_;
}

ExitCode FolderDrive::Mount(int ended) {
    name_ = ShownName(order_.volume.path);
    const Way way = ChooseWay();
    const ExitCode code = MountBy(way, ended);
    if (code == ExitCode::Done || way != Way::Udisks)
        return code;
    Abandon();
    std::uint64_t count = 0;
    static_cast<void>(!read(ended, &count, sizeof(count))); // that end does not count
    return MountBy(Way::Program, ended);
}

ExitCode FolderDrive::MountBy(Way way, int ended) {
    way_ = way;
    folder_ = order_.folder;
    inner_ = way == Way::File ? order_.folder : DrivePath(order_.volume.id);
    if (way != Way::File)
        mkdir(inner_.c_str(), 0700);
    fuse_ = MountFuse(inner_, order_.volume.isReadOnly, way == Way::Udisks);
    if (!fuse_.IsOpen())
        return ExitCode::SystemLacks;
    isInnerMounted_ = true;
    server_.reset(new (std::nothrow) fuse::Server(device_, {.name = name_,
                                                            .user = geteuid(),
                                                            .group = getegid(),
                                                            .readOnly = order_.volume.isReadOnly,
                                                            .cached = way == Way::Program}));
    if (!server_ || !server_->Start(fuse_.Get(), ended))
        return Fail(ExitCode::SystemLacks, "there is no memory or no thread for the service");
    struct stat status {};
    if (stat(inner_.c_str(), &status) == 0)
        connection_ = minor(status.st_dev);
    const ExitCode code = way == Way::File ? ExitCode::Done : MountFileSystem();
    if (code != ExitCode::Done)
        return code;
    isMounted_ = true;
    if (stat(folder_.c_str(), &status) == 0)
        folderDevice_ = status.st_dev;
    return code;
}

ExitCode FolderDrive::MountFileSystem() {
    const ExitCode code = way_ == Way::Loop ? MountThroughLoop()
                          : way_ == Way::Udisks
                              ? MountThroughUdisks()
                              : MountByProgram(device_, PlainFile(), folder_, order_.volume.isReadOnly);
    if (code != ExitCode::Done)
        return code;
    if (const int error = Unmount(inner_, true); error != 0)
        Warn("cannot unmount %s: %s", inner_.c_str(), std::strerror(error));
    isInnerMounted_ = false;
    rmdir(inner_.c_str());
    return code;
}

ExitCode FolderDrive::MountThroughLoop() {
    const bool readOnly = order_.volume.isReadOnly;
    const Descriptor loop = AttachLoop(PlainFile(), readOnly, loop_);
    if (!loop.IsOpen())
        return ExitCode::SystemLacks;
    std::string said;
    const std::string options = readOnly ? "ro,nodev,nosuid" : "nodev,nosuid";
    const int code = RunTool({.words = {FindTool("mount"), "-o", options, "--", loop_, order_.folder}}, said);
    if (code == 0)
        return ExitCode::Done;
    Warn("%s", said.c_str());
    return Fail(ExitCode::BadFile,
                "no file system of %s could be mounted; format it (quilla create --format), or use --raw",
                order_.volume.path.c_str());
}

/// Once the file system stands, its loop device is to go with it, and the folder that was made for it is not
/// needed.
ExitCode FolderDrive::MountThroughUdisks() {
    const bool readOnly = order_.volume.isReadOnly;
    std::string said;
    const bool hasLoop = udisks::SetUpLoop(PlainFile(), readOnly, loop_, said);
    const bool isDone = hasLoop && udisks::Mount(loop_, readOnly, folder_, said);
    if (hasLoop)
        udisks::ReleaseLoop(loop_);
    if (!isDone) {
        loop_.clear();
        Warn("the system's disk service does not mount it for you: %s", said.c_str());
        return ExitCode::SystemLacks;
    }
    if (order_.isFolderOurs)
        rmdir(order_.folder.c_str());
    return ExitCode::Done;
}

int FolderDrive::UnmountFolder(bool lazily) {
    if (way_ != Way::Udisks)
        return Unmount(folder_, lazily);
    // The disk service may miss the device that has gone with its file system, and call that a failure.
    const int error = udisks::Unmount(loop_, lazily);
    return error == 0 || IsMountPoint(folder_) ? error : 0;
}

int FolderDrive::Dismount() {
    return UnmountFolder(false);
}

void FolderDrive::Detach() {
    const Descriptor folder(open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.IsOpen())
        static_cast<void>(syncfs(folder.Get()));
    static_cast<void>(UnmountFolder(true));
}

void FolderDrive::Abandon() {
    if (!server_) {
        if (isInnerMounted_)
            static_cast<void>(Unmount(inner_, true));
    } else {
        if (isMounted_ && way_ != Way::File && IsMountPoint(folder_))
            static_cast<void>(UnmountFolder(true));
        if (isInnerMounted_)
            static_cast<void>(Unmount(inner_, true));
        server_->Join();
        server_.reset();
    }
    if (way_ != Way::File && !inner_.empty())
        rmdir(inner_.c_str());
    isInnerMounted_ = false;
    fuse_.Close();
}

} // namespace quilla
