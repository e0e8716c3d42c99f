// quilla create

#include "linux/block_device.h"
#include "linux/command.h"
#include "linux/format.h"
#include "linux/volume.h"
#include "platform/disk_codes.h"
#include "platform/wipe.h"
#include "volume/data_file.h"
#include "volume/sha1.h"
#include "volume/volume_key.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace quilla {

namespace {

constexpr Option kOptions[] = {{.name = "size", .hasValue = true},
                               {.name = "cipher", .hasValue = true},
                               {.name = "key", .hasValue = true},
                               {.name = "timeout", .hasValue = true},
                               {.name = "format", .hasValue = true},
                               {.name = "password-file", .hasValue = true},
                               {.name = "no-strength"},
                               {.name = "yes"}};

constexpr char kHelp[] =
    "Usage: quilla create VOLUME.raw --size SIZE [OPTION ...]\n"
    "       quilla create /dev/DEVICE --key FILE [OPTION ...]\n"
    "Makes a volume, in a new file or of a whole block device, and its key file. Keep a copy\n"
    "of the key file: without it the data is lost.\n\n"
    "  --size SIZE           bytes, or with K, M, G or T at the end\n"
    "  --cipher NAME         twofish (default), cast128, or none\n"
    "  --key FILE            the key file (default: the volume's name with .key)\n"
    "  --timeout MINUTES     dismount after so long without use; 0 = never (default: 30)\n"
    "  --format TYPE         make a file system on it: ext4, fat, exfat, ... (without root: ext4 can be "
    "mounted)\n"
    "  --password-file FILE  the password is the first line of FILE (- = standard input)\n"
    "  --no-strength         do not slow down guessing (64 MB of memory and a moment each time); for\n"
    "                        handhelds and programs that do not know the option\n"
    "  --yes                 what the device holds may be lost (otherwise you are asked)\n";

bool ParseNumber(const char* text, std::uint64_t largest, std::uint64_t& number, const char*& rest) {
    char* end = nullptr;
    errno = 0;
    number = std::strtoull(text, &end, 10);
    rest = end;
    return errno == 0 && text[0] >= '0' && text[0] <= '9' && number <= largest;
}

bool ParseSize(const char* text, std::uint64_t& size) {
    constexpr char kUnits[] = "KMGT";
    const char* rest = nullptr;
    if (text == nullptr || !ParseNumber(text, std::numeric_limits<std::int64_t>::max(), size, rest))
        return false;
    if (*rest != '\0') {
        const char* const unit = std::strchr(kUnits, *rest & ~0x20);
        if (unit == nullptr || rest[1] != '\0')
            return false;
        const auto shift = static_cast<unsigned>(10 * (unit - kUnits + 1));
        if (size > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()) >> shift)
            return false;
        size <<= shift;
    }
    return size >= kSectorSize;
}

bool ParseMinutes(const char* text, std::uint64_t& timeout) {
    constexpr std::uint64_t kMostMinutes = 1'000'000;
    const char* rest = nullptr;
    if (!ParseNumber(text, kMostMinutes, timeout, rest) || *rest != '\0')
        return false;
    timeout *= kTimeoutUnitsPerMinute;
    return true;
}

ExitCode ReadOptions(const Arguments& arguments, Volume& volume) {
    volume.path = arguments.Operands()[0];
    volume.isDevice = IsBlockDevice(volume.path.c_str());
    if (volume.isDevice && arguments.Has("size"))
        return Fail(ExitCode::Usage, "%s has a size of its own: leave out --size", volume.path.c_str());
    if (volume.isDevice) {
        if (const ExitCode code = FindVolume(volume.path.c_str(), volume); code != ExitCode::Done)
            return code;
    } else if (!ParseSize(arguments.Value("size"), volume.size))
        return Fail(ExitCode::Usage, "say how big the volume is to be, for example --size 2G");
    if (!CipherByName(arguments.Value("cipher", "twofish"), volume.settings.Cipher))
        return Fail(ExitCode::Usage, "there is no cipher %s; take twofish, cast128 or none",
                    arguments.Value("cipher"));
    if (!ParseMinutes(arguments.Value("timeout", "30"), volume.settings.Timeout))
        return Fail(ExitCode::Usage, "%s is no number of minutes", arguments.Value("timeout"));
    if (volume.settings.Cipher != CipherId::None && volume.isDevice && !arguments.Has("key"))
        return FailWithoutKeyFile(volume);
    if (volume.settings.Cipher != CipherId::None)
        volume.keyPath = arguments.Value("key", DefaultKeyFile(volume.path).c_str());
    if (volume.keyPath == volume.path)
        return Fail(ExitCode::Usage, "%s cannot be the key file, too", volume.path.c_str());
    return ExitCode::Done;
}

ExitCode MakePasswordKey(const Arguments& arguments, const Volume& volume, PasswordDigest& key) {
    if (volume.settings.Cipher == CipherId::None)
        return ExitCode::Done;
    PasswordSource source(arguments.Value("password-file"));
    TextView password;
    const std::string prompt = "New password for " + ShownName(volume.path) + ": ";
    const ExitCode code = source.AskNew(prompt.c_str(), password);
    if (code == ExitCode::Done)
        PasswordKey(key, password);
    return code;
}

void RemoveDataFile(const Volume& volume) {
    if (!volume.isDevice)
        File::Remove(volume.path.c_str());
}

void RemoveKeyFile(const Volume& volume) {
    if (!volume.keyPath.empty())
        File::Remove(volume.keyPath.c_str());
}

/// Creates both files, or neither; a device is touched last. With strength the key file is written with it at
/// once.
ExitCode CreateFiles(const Volume& volume, const PasswordDigest& passwordKey, bool isStrong) {
    Secret<PasswordDigest> key;
    *key = passwordKey;
    KeyStrength strength{};
    isStrong = isStrong && volume.settings.Cipher != CipherId::None;
    if (isStrong)
        if (const KeyFileStatus status = MakeWrappingKey(*key, strength, kDefaultArgon2Cost);
            status != KeyFileStatus::Done)
            return ReportKeyFile(status, volume.keyPath);
    if (!volume.isDevice && !CreateDataFile(volume.path.c_str(), volume.size))
        return Fail(ExitCode::BadFile, "cannot create %s: %s", volume.path.c_str(), std::strerror(errno));
    ExitCode code = ExitCode::Done;
    if (volume.settings.Cipher != CipherId::None)
        code = ReportKeyFile(
            CreateKeyFile(volume.keyPath.c_str(), volume.settings, *key, isStrong ? &strength : nullptr),
            volume.keyPath);
    if (code != ExitCode::Done) {
        RemoveDataFile(volume);
        return code;
    }
    if (volume.isDevice)
        code = ClearDevice(volume);
    if (code != ExitCode::Done)
        RemoveKeyFile(volume);
    return code;
}

ExitCode Run(const Arguments& arguments) {
    Volume volume;
    const char* const format = arguments.Value("format");
    if (const ExitCode code = ReadOptions(arguments, volume); code != ExitCode::Done)
        return code;
    if (const ExitCode code = CheckFormat(format); code != ExitCode::Done)
        return code;
    if (volume.isDevice)
        if (const ExitCode code = AgreeToOverwrite(volume, arguments.Has("yes")); code != ExitCode::Done)
            return code;
    Secret<PasswordDigest> key;
    if (const ExitCode code = MakePasswordKey(arguments, volume, *key); code != ExitCode::Done)
        return code;
    if (const ExitCode code = CreateFiles(volume, *key, !arguments.Has("no-strength"));
        code != ExitCode::Done)
        return code;
    if (format == nullptr)
        return ExitCode::Done;
    const ExitCode code = FormatVolume(volume, *key, format);
    if (code != ExitCode::Done) {
        RemoveDataFile(volume);
        RemoveKeyFile(volume);
    }
    return code;
}

} // namespace

constinit const Command kCreateCommand = {
    .name = "create", .options = kOptions, .minOperands = 1, .maxOperands = 1, .help = kHelp, .run = Run};

} // namespace quilla
