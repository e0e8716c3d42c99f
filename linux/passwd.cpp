// quilla passwd

#include "linux/command.h"
#include "linux/volume.h"
#include "platform/wipe.h"
#include "volume/volume_key.h"

#include <cstdio>

namespace quilla {

namespace {

constexpr Option kOptions[] = {{.name = "key", .hasValue = true},
                               {.name = "password-file", .hasValue = true}};

constexpr char kHelp[] =
    "Usage: quilla passwd VOLUME.raw [--key FILE] [--password-file FILE]\n"
    "Changes the password. Nothing of the data is enciphered anew: who has an old copy of the key file and "
    "the\n"
    "old password can still open the volume.\n\n"
    "  --password-file FILE  the old password is the first line of FILE, the new one the second\n";

ExitCode Run(const Arguments& arguments) {
    Volume volume;
    if (const ExitCode code = FindVolume(arguments.Operands()[0], volume); code != ExitCode::Done)
        return code;
    if (const ExitCode code = ReadKeyFile(arguments.Value("key"), false, volume); code != ExitCode::Done)
        return code;
    if (volume.settings.Cipher == CipherId::None)
        return Fail(ExitCode::BadFile, "%s has no cipher and so no password", volume.path.c_str());
    Secret<KeyBlock> block;
    PasswordSource source(arguments.Value("password-file"));
    std::optional<KeyStrength> strength;
    if (const ExitCode code = UnlockVolume(volume, source, *block, &strength); code != ExitCode::Done)
        return code;
    TextView password;
    if (const ExitCode code = source.AskNew("New password: ", password); code != ExitCode::Done)
        return code;
    Secret<PasswordDigest> key;
    DerivePasswordKey(volume, password, *key);
    const Argon2Cost cost = strength ? CostOf(*strength) : Argon2Cost{};
    const ExitCode code = ReportKeyFile(WriteVolumeKey(volume.keyPath.c_str(), volume.settings.Cipher, *key,
                                                       *block, strength ? &cost : nullptr),
                                        volume.keyPath);
    if (code == ExitCode::Done)
        std::printf("the password is changed; keep a new copy of %s\n", volume.keyPath.c_str());
    return code;
}

} // namespace

constinit const Command kPasswdCommand = {
    .name = "passwd", .options = kOptions, .minOperands = 1, .maxOperands = 1, .help = kHelp, .run = Run};

} // namespace quilla
