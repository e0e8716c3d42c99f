#include "linux/volume.h"

#include "linux/block_device.h"
#include "platform/wipe.h"
#include "volume/sha1.h"
#include "volume/volume_key.h"

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <strings.h>
#include <sys/stat.h>

namespace quilla {

namespace {

constexpr struct {
    CipherId id;
    const char* name;
} kCiphers[] = {{CipherId::None, "none"}, {CipherId::Twofish, "twofish"}, {CipherId::Cast128, "cast128"}};

/// The name without its extension, if its last part has one.
std::string WithoutExtension(const std::string& path) {
    const std::size_t dot = path.rfind('.');
    const std::size_t slash = path.rfind('/');
    const std::size_t name = slash == path.npos ? 0 : slash + 1;
    return dot == path.npos || dot <= name ? path : path.substr(0, dot);
}

std::string AbsolutePath(const char* path) {
    std::array<char, PATH_MAX> whole;
    return realpath(path, whole.data()) == nullptr ? std::string() : std::string(whole.data());
}

} // namespace

const char* CipherName(CipherId cipher) {
    for (const auto& known : kCiphers)
        if (known.id == cipher)
            return known.name;
    return "unknown";
}

bool CipherByName(const char* name, CipherId& cipher) {
    for (const auto& known : kCiphers)
        if (strcasecmp(known.name, name) == 0) {
            cipher = known.id;
            return true;
        }
    return false;
}

std::string DefaultKeyFile(const std::string& path) {
    return WithoutExtension(path) + ".key";
}

std::string ShownName(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return WithoutExtension(slash == path.npos ? path : path.substr(slash + 1));
}

std::string FileId(const char* path) {
    struct stat status {};
    std::array<char, 48> id{};
    if (stat(path, &status) != 0)
        return {};
    if (S_ISBLK(status.st_mode)) // several names may lead to one device
        std::snprintf(id.data(), id.size(), "device-%llx", static_cast<unsigned long long>(status.st_rdev));
    else
        std::snprintf(id.data(), id.size(), "%llx-%llx", static_cast<unsigned long long>(status.st_dev),
                      static_cast<unsigned long long>(status.st_ino));
    return id.data();
}

ExitCode FindVolume(const char* path, Volume& volume) {
    struct stat status {};
    volume.path = AbsolutePath(path);
    if (volume.path.empty() || stat(volume.path.c_str(), &status) != 0)
        return Fail(ExitCode::BadFile, "cannot find %s: %s", path, std::strerror(errno));
    volume.isDevice = S_ISBLK(status.st_mode);
    if (!S_ISREG(status.st_mode) && !volume.isDevice)
        return Fail(ExitCode::BadFile, "%s is neither a file nor a block device", path);
    volume.size =
        volume.isDevice ? BlockDeviceSize(volume.path.c_str()) : static_cast<std::uint64_t>(status.st_size);
    if (volume.isDevice && volume.size == 0)
        return Fail(ExitCode::BadFile, "%s cannot be read, or has no medium: %s", path, std::strerror(errno));
    volume.id = FileId(volume.path.c_str());
    return ExitCode::Done;
}

ExitCode ReportKeyFile(KeyFileStatus status, const std::string& keyPath) {
    const char* const path = keyPath.c_str();
    const char* const reason = std::strerror(errno);
    switch (status) {
    case KeyFileStatus::Done:
        return ExitCode::Done;
    case KeyFileStatus::UnknownFormat:
        return Fail(ExitCode::BadFile, "%s is damaged or no key file; restore it from a copy", path);
    case KeyFileStatus::CannotOpen:
        return Fail(ExitCode::BadFile, "cannot open the key file %s: %s", path, reason);
    case KeyFileStatus::CannotCreate:
        return Fail(ExitCode::BadFile, "cannot create the key file %s: %s", path, reason);
    case KeyFileStatus::CannotRead:
        return Fail(ExitCode::BadFile, "cannot read the key file %s: it is cut short or the disk fails",
                    path);
    case KeyFileStatus::NoMemory:
        return Fail(ExitCode::SystemLacks, "there is too little memory for the strength of %s", path);
    case KeyFileStatus::Stopped:
        return Fail(ExitCode::Usage, "stopped; nothing has been changed");
    case KeyFileStatus::CannotWrite:
        return Fail(ExitCode::BadFile, "cannot write to the key file %s: %s", path, reason);
    }
    return ExitCode::BadFile;
}

ExitCode FailWithoutKeyFile(const Volume& volume) {
    return Fail(ExitCode::Usage, "%s is a device: name its key file with --key FILE", volume.path.c_str());
}

ExitCode ReadKeyFile(const char* keyPath, bool isPlain, Volume& volume) {
    if (isPlain)
        return ExitCode::Done;
    if (keyPath == nullptr && volume.isDevice)
        return FailWithoutKeyFile(volume);
    const std::string wanted = keyPath == nullptr ? DefaultKeyFile(volume.path) : keyPath;
    volume.keyPath = AbsolutePath(wanted.c_str());
    if (volume.keyPath.empty())
        return Fail(
            ExitCode::BadFile,
            "there is no key file %s; name it with --key FILE, or say --plain if the volume has no cipher",
            wanted.c_str());
    if (volume.keyPath == volume.path || File::IsSameFile(volume.path.c_str(), volume.keyPath.c_str()))
        return Fail(ExitCode::BadFile, "%s is the volume and cannot be its key file, too", wanted.c_str());
    return ReportKeyFile(LoadSummary(volume.keyPath.c_str(), volume.settings), volume.keyPath);
}

ExitCode FindVolumeAndKey(const char* path, const char* keyPath, bool isPlain, Volume& volume) {
    const ExitCode code = FindVolume(path, volume);
    return code == ExitCode::Done ? ReadKeyFile(keyPath, isPlain, volume) : code;
}

ExitCode UnlockVolume(const Volume& volume, PasswordSource& source, KeyBlock& block,
                      std::optional<KeyStrength>* strength) {
    if (volume.settings.Cipher == CipherId::None)
        return ExitCode::Done;
    TextView password;
    const std::string prompt = "Password for " + ShownName(volume.path) + ": ";
    if (const ExitCode code = source.Ask(prompt.c_str(), password); code != ExitCode::Done)
        return code;
    Secret<PasswordDigest> key;
    PasswordKey(*key, password);
    bool isRight = false;
    const KeyFileStatus status =
        LoadVolumeKey(volume.keyPath.c_str(), volume.settings.Cipher, *key, block, isRight, strength);
    if (status != KeyFileStatus::Done)
        return ReportKeyFile(status, volume.keyPath);
    return isRight ? ExitCode::Done
                   : Fail(ExitCode::WrongPassword, "incorrect password for %s", volume.path.c_str());
}

ExitCode OpenDataFile(Volume& volume, bool readOnly, File& file) {
    const char* const path = volume.path.c_str();
    if (!readOnly) {
        file = File::Open(path, FileAccess::ReadWrite, FileSharing::None, FileCreation::OpenExisting);
        if (!file.IsOpen() && (errno == EROFS || errno == EACCES || errno == EPERM)) {
            Warn("%s cannot be written (%s); it is mounted for reading only", path, std::strerror(errno));
            readOnly = true;
        }
    }
    if (readOnly)
        file = File::Open(path, FileAccess::Read, FileSharing::Read, FileCreation::OpenExisting);
    volume.isReadOnly = readOnly;
    if (file.IsOpen())
        return ExitCode::Done;
    if (errno == EAGAIN || errno == EWOULDBLOCK || errno == EBUSY)
        return Fail(ExitCode::Busy, "%s is in use by %s; dismount it there", path,
                    volume.isDevice ? "the system or another program" : "another program");
    return Fail(ExitCode::BadFile, "cannot open %s: %s", path, std::strerror(errno));
}

} // namespace quilla
