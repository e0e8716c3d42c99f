// What is mounted on what, and how it comes apart again. The folder of the FUSE file is unmounted lazily as
// soon as the file system stands: from then on one unmount of the file system ends loop device, FUSE file and
// service, whoever does it.

#include "linux/folder_drive.h"

#include "linux/fuse_mount.h"
#include "linux/loop_device.h"
#include "linux/runtime_folder.h"
#include "linux/tool.h"

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

bool FolderDrive::IsForUsersProgram() const {
    return order_.kind == DriveKind::Folder && !IsRoot();
}

std::string FolderDrive::PlainFile() const {
    return inner_ + "/" + name_;
}

std::string FolderDrive::Place() const {
    return order_.kind == DriveKind::Raw ? PlainFile() : order_.folder;
}

void FolderDrive::Describe(MountState& state) const {
    state.place = Place();
    state.device = loop_;
    state.folderDevice = folderDevice_;
    state.connection = connection_;
}

ExitCode FolderDrive::Mount(int ended) {
    name_ = ShownName(order_.volume.path);
    inner_ = order_.kind == DriveKind::Raw ? order_.folder : DrivePath(order_.volume.id);
    if (order_.kind != DriveKind::Raw)
        mkdir(inner_.c_str(), 0700);
    fuse_ = MountFuse(inner_, order_.volume.isReadOnly);
    if (!fuse_.IsOpen())
        return ExitCode::SystemLacks;
    isInnerMounted_ = true;
    server_.reset(new (std::nothrow) fuse::Server(device_, {.name = name_,
                                                            .user = geteuid(),
                                                            .group = getegid(),
                                                            .readOnly = order_.volume.isReadOnly,
                                                            .cached = IsForUsersProgram()}));
    if (!server_ || !server_->Start(fuse_.Get(), ended))
        return Fail(ExitCode::SystemLacks, "there is no memory or no thread for the service");
    struct stat status {};
    if (stat(inner_.c_str(), &status) == 0)
        connection_ = minor(status.st_dev);
    const ExitCode code = order_.kind == DriveKind::Raw ? ExitCode::Done : MountFileSystem();
    if (code != ExitCode::Done)
        return code;
    isMounted_ = true;
    if (stat(order_.folder.c_str(), &status) == 0)
        folderDevice_ = status.st_dev;
    return code;
}

ExitCode FolderDrive::MountFileSystem() {
    const ExitCode code = IsRoot() ? MountThroughLoop() : MountThroughProgram();
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

ExitCode FolderDrive::MountThroughProgram() {
    std::string said;
    const std::string options = order_.volume.isReadOnly ? "ro,fakeroot" : "rw,fakeroot";
    const int code =
        RunTool({.words = {FindTool("fuse2fs"), PlainFile(), order_.folder, "-o", options}}, said);
    if (code == 0)
        return ExitCode::Done;
    Warn("%s", said.c_str());
    return Fail(ExitCode::BadFile,
                "%s holds no ext4 that could be mounted; without root only ext4 can be: use --raw",
                order_.volume.path.c_str());
}

int FolderDrive::Dismount() {
    return Unmount(order_.folder, false);
}

void FolderDrive::Detach() {
    const Descriptor folder(open(order_.folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.IsOpen())
        static_cast<void>(syncfs(folder.Get()));
    static_cast<void>(Unmount(order_.folder, true));
}

void FolderDrive::Abandon() {
    if (!server_) {
        if (isInnerMounted_)
            static_cast<void>(Unmount(inner_, true));
    } else {
        if (isMounted_ && order_.kind == DriveKind::Folder && IsMountPoint(order_.folder))
            static_cast<void>(Unmount(order_.folder, true));
        if (isInnerMounted_)
            static_cast<void>(Unmount(inner_, true));
        server_->Join();
        server_.reset();
    }
    if (order_.kind != DriveKind::Raw && !inner_.empty())
        rmdir(inner_.c_str());
    isInnerMounted_ = false;
    fuse_.Close();
}

} // namespace quilla
