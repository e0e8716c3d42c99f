#pragma once

#include "linux/arguments.h"
#include "linux/message.h"

#include <span>

namespace quilla {

/// One subcommand: its name, its options, how many operands it takes, what --help prints and what it does.
struct Command {
    const char* name;
    std::span<const Option> options;
    std::size_t minOperands;
    std::size_t maxOperands;
    const char* help;
    ExitCode (*run)(const Arguments& arguments);
};

extern const Command kCreateCommand;
extern const Command kMountCommand;
extern const Command kDismountCommand;
extern const Command kListCommand;
extern const Command kInfoCommand;
extern const Command kPasswdCommand;
extern const Command kCheckCommand;

} // namespace quilla
