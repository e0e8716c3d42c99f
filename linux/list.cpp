// quilla list

#include "linux/command.h"
#include "linux/control.h"
#include "linux/holders.h"
#include "linux/json.h"

#include <cstdio>

namespace quilla {

namespace {

constexpr Option kOptions[] = {{.name = "json"}};

constexpr char kHelp[] =
    "Usage: quilla list [--json]\n"
    "What you have mounted: where, since when it is idle, its time-out and how many processes use it.\n";

std::string Minutes(std::uint64_t seconds) {
    return seconds == 0 ? "never" : std::to_string(seconds / 60) + " min";
}

void PrintLine(const MountState& state) {
    if (state.service != ServiceLife::Answers) {
        std::printf("%s on %s: its service %s; quilla dismount %s%s\n", state.volume.c_str(),
                    state.place.c_str(),
                    state.service == ServiceLife::Dead ? "has ended unexpectedly" : "does not answer",
                    state.service == ServiceLife::Dead ? "" : "--force ", state.volume.c_str());
        return;
    }
    std::printf("%s on %s (%s%s), idle %llu s, dismounts itself after %s, %zu clients\n",
                state.volume.c_str(), state.place.c_str(), state.cipher.c_str(),
                state.isReadOnly ? ", read-only" : "", static_cast<unsigned long long>(state.idleSeconds),
                Minutes(state.timeoutSeconds).c_str(), FindHolders(state).size());
}

std::string Json(const MountState& state) {
    return JsonObject()
        .Text("volume", state.volume)
        .Text("key", state.key)
        .Text("place", state.place)
        .Text("device", state.device)
        .Text("cipher", state.cipher)
        .Number("size", state.size)
        .Number("timeoutSeconds", state.timeoutSeconds)
        .Number("idleSeconds", state.idleSeconds)
        .Number("clients", FindHolders(state).size())
        .Number("process", static_cast<unsigned>(state.process))
        .Flag("answers", state.service == ServiceLife::Answers)
        .Flag("readOnly", state.isReadOnly)
        .Close();
}

ExitCode Run(const Arguments& arguments) {
    const std::vector<MountState> states = AllMounted();
    if (!arguments.Has("json")) {
        for (const MountState& state : states)
            PrintLine(state);
        return ExitCode::Done;
    }
    std::string text = "[";
    for (const MountState& state : states)
        text += (text.size() > 1 ? ",\n " : "") + Json(state);
    std::printf("%s]\n", text.c_str());
    return ExitCode::Done;
}

} // namespace

constinit const Command kListCommand = {
    .name = "list", .options = kOptions, .minOperands = 0, .maxOperands = 0, .help = kHelp, .run = Run};

} // namespace quilla
