#include "linux/message.h"

#include <cstdarg>
#include <cstdio>

namespace quilla {

namespace {

[[gnu::format(printf, 1, 0)]] void PrintLine(const char* format, std::va_list arguments) {
    std::fputs("quilla: ", stderr);
    std::vfprintf(stderr, format, arguments);
    std::fputc('\n', stderr);
}

} // namespace

// NOLINTNEXTLINE(cert-dcl50-cpp): the compiler checks the arguments against the format
ExitCode Fail(ExitCode code, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    PrintLine(format, arguments);
    va_end(arguments);
    return code;
}

// NOLINTNEXTLINE(cert-dcl50-cpp): the compiler checks the arguments against the format
void Warn(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    PrintLine(format, arguments);
    va_end(arguments);
}

} // namespace quilla
