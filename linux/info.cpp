// quilla info

#include "linux/command.h"
#include "linux/control.h"
#include "linux/json.h"
#include "linux/volume.h"

#include <cstdio>

namespace quilla {

namespace {

constexpr Option kOptions[] = {{.name = "key", .hasValue = true}, {.name = "json"}};

constexpr char kHelp[] = "Usage: quilla info VOLUME.raw [--key FILE] [--json]\n"
                         "What is known of a volume without its password.\n";

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
        json.Text("place", mounted.place);
        std::printf("%s\n", json.Close().c_str());
        return state;
    }
    std::printf("volume    %s\nsize      %llu bytes\nkey file  %s (%s)\n", volume.path.c_str(),
                static_cast<unsigned long long>(volume.size), volume.keyPath.c_str(), keyState);
    if (isReadable)
        std::printf("cipher    %s\ntime-out  %llu minutes%s\n", cipher, minutes,
                    minutes == 0 ? " (never)" : "");
    std::printf("mounted   %s\n", isMounted ? mounted.place.c_str() : "no");
    return state;
}

} // namespace

constinit const Command kInfoCommand = {
    .name = "info", .options = kOptions, .minOperands = 1, .maxOperands = 1, .help = kHelp, .run = Run};

} // namespace quilla
