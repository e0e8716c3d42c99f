// quilla info

#include "linux/command.h"
#include "linux/control.h"
#include "linux/json.h"
#include "linux/volume.h"
#include "volume/key_strength.h"

#include <array>
#include <cstdio>
#include <string>

namespace quilla {

namespace {

constexpr Option kOptions[] = {{.name = "key", .hasValue = true}, {.name = "json"}};

constexpr char kHelp[] = "Usage: quilla info VOLUME.raw [--key FILE] [--json]\n"
                         "What is known of a volume without its password.\n";

/// What the key file says about guessing its password.
std::string DescribeStrength(const Volume& volume) {
    std::optional<KeyStrength> strength;
    if (volume.settings.Cipher == CipherId::None)
        return "no password";
    if (LoadKeyStrength(volume.keyPath.c_str(), strength) != KeyFileStatus::Done)
        return "unknown";
    if (!strength)
        return "fast";
    std::array<char, 80> text{};
    std::snprintf(text.data(), text.size(), "slowed down (%u MiB, %u passes, %u lanes)",
                  strength->memory / 1024, strength->passes, strength->lanes);
    return text.data();
}

ExitCode Run(const Arguments& arguments) {
    Volume volume;
    if (const ExitCode code = FindVolume(arguments.Operands()[0], volume); code != ExitCode::Done)
        return code;
    const ExitCode state = ReadKeyFile(arguments.Value("key"), false, volume);
    const bool isReadable = state == ExitCode::Done;
    const char* const cipher = isReadable ? CipherName(volume.settings.Cipher) : "unknown";
    const unsigned long long minutes = volume.settings.Timeout / kTimeoutUnitsPerMinute;
    const char* const keyState = isReadable               ? "readable"
                                 : volume.keyPath.empty() ? "missing"
                                                          : "not readable";
    MountState mounted;
    const bool isMounted = AskState(volume.id, mounted);
    if (arguments.Has("json")) {
        JsonObject json;
        json.Text("volume", volume.path).Number("size", volume.size).Text("key", volume.keyPath);
        json.Text("keyFile", keyState).Text("cipher", cipher).Number("timeoutMinutes", minutes);
        json.Text("guessing", isReadable ? DescribeStrength(volume) : "unknown");
        json.Text("place", mounted.place);
        std::printf("%s\n", json.Close().c_str());
        return state;
    }
    std::printf("volume    %s\nsize      %llu bytes\nkey file  %s (%s)\n", volume.path.c_str(),
                static_cast<unsigned long long>(volume.size), volume.keyPath.c_str(), keyState);
    if (isReadable)
        std::printf("cipher    %s\nguessing  %s\ntime-out  %llu minutes%s\n", cipher,
                    DescribeStrength(volume).c_str(), minutes, minutes == 0 ? " (never)" : "");
    std::printf("mounted   %s\n", isMounted ? mounted.place.c_str() : "no");
    return state;
}

} // namespace

constinit const Command kInfoCommand = {
    .name = "info", .options = kOptions, .minOperands = 1, .maxOperands = 1, .help = kHelp, .run = Run};

} // namespace quilla
