// quilla check

#include "linux/command.h"
#include "linux/volume.h"
#include "platform/wipe.h"

#include <cstdio>

namespace quilla {

namespace {

constexpr Option kOptions[] = {{.name = "key", .hasValue = true},
                               {.name = "password-file", .hasValue = true}};

constexpr char kHelp[] =
    "Usage: quilla check VOLUME.raw [--key FILE] [--password-file FILE]\n"
    "Asks for the password and tells whether it is right, without mounting: exit code 0 or 2.\n";

ExitCode Run(const Arguments& arguments) {
    Volume volume;
    if (const ExitCode code =
            FindVolumeAndKey(arguments.Operands()[0], arguments.Value("key"), false, volume);
        code != ExitCode::Done)
        return code;
    Secret<KeyBlock> block;
    PasswordSource source(arguments.Value("password-file"));
    const ExitCode code = UnlockVolume(volume, source, *block);
    if (code == ExitCode::Done)
        std::puts(volume.settings.Cipher == CipherId::None ? "the volume has no password"
                                                           : "the password is right");
    return code;
}

} // namespace

constinit const Command kCheckCommand = {
    .name = "check", .options = kOptions, .minOperands = 1, .maxOperands = 1, .help = kHelp, .run = Run};

} // namespace quilla
