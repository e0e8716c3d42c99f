// quilla: the native command. Finds the subcommand.

#include "linux/command.h"
#include "linux/hardening.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <string_view>

namespace quilla {
namespace {

constexpr const Command* kCommands[] = {&kCreateCommand, &kMountCommand,  &kDismountCommand, &kListCommand,
                                        &kInfoCommand,   &kPasswdCommand, &kCheckCommand};

constexpr char kHelp[] = "Usage: quilla COMMAND [OPTION ...]\n"
                         "Encrypted volumes as folders.\n\n"
                         "  create    make a volume and its key file\n"
                         "  mount     open a volume with its password\n"
                         "  dismount  close it again\n"
                         "  list      what is mounted\n"
                         "  info      what is known of a volume without its password\n"
                         "  passwd    change a volume's password\n"
                         "  check     is the password right?\n\n"
                         "quilla COMMAND --help tells more.\n";

ExitCode Run(std::span<char* const> words) {
    const std::string_view name = words.size() < 2 ? "--help" : words[1];
    if (name == "--help" || name == "help") {
        std::fputs(kHelp, words.size() < 2 ? stderr : stdout);
        return words.size() < 2 ? ExitCode::Usage : ExitCode::Done;
    }
    const auto* const command =
        std::ranges::find_if(kCommands, [&](const Command* one) { return one->name == name; });
    if (command == std::end(kCommands))
        return Fail(ExitCode::Usage, "there is no command \"%s\"; quilla --help lists them", words[1]);
    const Command& found = **command;
    const std::span<char* const> rest = words.subspan(2);
    if (std::ranges::any_of(rest, [](const char* word) { return std::string_view(word) == "--help"; })) {
        std::fputs(found.help, stdout);
        return ExitCode::Done;
    }
    Arguments arguments;
    if (!arguments.Parse(rest, found.options))
        return Fail(ExitCode::Usage, "quilla %s --help tells how to use it", found.name);
    const std::size_t count = arguments.Operands().size();
    if (count < found.minOperands || count > found.maxOperands)
        return Fail(ExitCode::Usage, "too %s operands; quilla %s --help tells how to use it",
                    count < found.minOperands ? "few" : "many", found.name);
    return found.run(arguments);
}

} // namespace
} // namespace quilla

int main(int count, char** words) {
    quilla::ShutOut();
    quilla::LockProcessMemory();
    return static_cast<int>(quilla::Run({words, static_cast<std::size_t>(count)}));
}
