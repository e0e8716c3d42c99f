// quilla passwd

#include "linux/command.h"
#include "linux/volume.h"
#include "platform/clock.h"
#include "platform/wipe.h"
#include "volume/sha1.h"
#include "volume/volume_key.h"

#include <cstdio>
#include <cstdlib>
#include <optional>

namespace quilla {

namespace {

constexpr Option kOptions[] = {{.name = "key", .hasValue = true},
                               {.name = "password-file", .hasValue = true},
                               {.name = "strength", .hasValue = true},
                               {.name = "no-strength"}};

constexpr char kHelp[] =
    "Usage: quilla passwd VOLUME.raw [--key FILE] [--password-file FILE]\n"
    "                     [--strength SECONDS | --no-strength]\n"
    "Changes the password. Nothing of the data is enciphered anew: who has an old copy of the key file and "
    "the\n"
    "old password can still open the volume.\n\n"
    "  --password-file FILE  the old password is the first line of FILE, the new one the second\n"
    "  --strength SECONDS    slow down guessing: each try shall take so long here (without it: as before)\n"
    "  --no-strength         do not slow down guessing from now on\n";

/// What the new password is to cost to guess: what the options say, else what the old one costs.
ExitCode ChooseCost(const Arguments& arguments, std::optional<Argon2Cost>& cost) {
    const char* const text = arguments.Value("strength");
    if (arguments.Has("no-strength")) {
        cost.reset();
        return text == nullptr ? ExitCode::Done
                               : Fail(ExitCode::Usage, "--strength and --no-strength exclude each other");
    }
    if (text == nullptr)
        return ExitCode::Done;
    char* end = nullptr;
    const double seconds = std::strtod(text, &end);
    if (*end != '\0' || !(seconds > 0 && seconds <= 600))
        return Fail(ExitCode::Usage, "%s is no number of seconds up to 600", text);
    cost = CostForMilliseconds(static_cast<std::uint64_t>(seconds * 1000));
    return cost ? ExitCode::Done : Fail(ExitCode::SystemLacks, "there is too little memory for --strength");
}

void TellChange(const Volume& volume, const std::optional<Argon2Cost>& cost, std::uint64_t milliseconds) {
    std::printf("the password is changed; keep a new copy of %s\n", volume.keyPath.c_str());
    if (cost)
        std::printf("guessing is slowed down: each try takes %u MiB and, here, %llu ms\n",
                    cost->memory / 1024, static_cast<unsigned long long>(milliseconds));
}

ExitCode Run(const Arguments& arguments) {
    Volume volume;
    if (const ExitCode code =
            FindVolumeAndKey(arguments.Operands()[0], arguments.Value("key"), false, volume);
        code != ExitCode::Done)
        return code;
    if (volume.settings.Cipher == CipherId::None)
        return Fail(ExitCode::BadFile, "%s has no cipher and so no password", volume.path.c_str());
    Secret<KeyBlock> block;
    PasswordSource source(arguments.Value("password-file"));
    std::optional<KeyStrength> strength;
    if (const ExitCode code = UnlockVolume(volume, source, *block, &strength); code != ExitCode::Done)
        return code;
    std::optional<Argon2Cost> cost;
    if (strength)
        cost = CostOf(*strength);
    if (const ExitCode code = ChooseCost(arguments, cost); code != ExitCode::Done)
        return code;
    TextView password;
    if (const ExitCode code = source.AskNew("New password: ", password); code != ExitCode::Done)
        return code;
    Secret<PasswordDigest> key;
    PasswordKey(*key, password);
    const std::uint64_t begin = MonotonicMilliseconds();
    const ExitCode code = ReportKeyFile(
        StoreSealedKey(volume.keyPath.c_str(), volume.settings.Cipher, *key, *block, cost ? &*cost : nullptr),
        volume.keyPath);
    if (code == ExitCode::Done)
        TellChange(volume, cost, MonotonicMilliseconds() - begin);
    return code;
}

} // namespace

constinit const Command kPasswdCommand = {
    .name = "passwd", .options = kOptions, .minOperands = 1, .maxOperands = 1, .help = kHelp, .run = Run};

} // namespace quilla
