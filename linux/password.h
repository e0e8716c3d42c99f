#pragma once

#include "linux/message.h"
#include "platform/text.h"
#include "volume/password_digest.h"

#include <cstddef>
#include <span>
#include <string_view>

namespace quilla {

/// Where passwords come from: the terminal, without echo, or the lines of a file ("-" = standard input), the
/// first password on the first line. They live in locked memory and are wiped at the end.
class PasswordSource {
  public:
    /// Null = the terminal. Opens nothing yet.
    explicit PasswordSource(const char* file) : file_(file) {}
    ~PasswordSource();
    PasswordSource(const PasswordSource&) = delete;
    PasswordSource& operator=(const PasswordSource&) = delete;

    /// Asks for a password; the view lives until the next call. Tells what went wrong.
    [[nodiscard]] ExitCode Ask(const char* prompt, TextView& password);

    /// Asks for a new password, twice on a terminal.
    [[nodiscard]] ExitCode AskNew(const char* prompt, TextView& password);

  private:
    /// More than the longest password needs in UTF-8.
    static constexpr std::size_t kLineSize = 1024;
    struct Memory {
        char line[kLineSize];
        TextUnit text[2][kPathUnits];
    };

    [[nodiscard]] ExitCode AskInto(const char* prompt, std::span<TextUnit> text, TextView& password);
    [[nodiscard]] bool ReadLine(int descriptor, std::size_t& length);
    [[nodiscard]] ExitCode ReadTerminal(const char* prompt, std::size_t& length);
    [[nodiscard]] ExitCode ReadFile(std::size_t& length);

    const char* file_;
    int descriptor_ = -1;
    Memory* memory_ = nullptr;
};

/// UTF-8 to UTF-16. Returns the units written, or the room's size and one more for what is not UTF-8 or too
/// long.
[[nodiscard]] std::size_t ToUtf16(std::string_view text, std::span<TextUnit> room);

} // namespace quilla
