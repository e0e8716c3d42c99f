// Passwords on their way in. A line is read byte by byte, so that the next reader of a pipe finds its own.

#include "linux/password.h"

#include "platform/locked_memory.h"
#include "platform/wipe.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

namespace quilla {

namespace {

void Interrupt(int /*signal*/) {}

/// A terminal without echo, which lets a read end on an interrupt; as it was before at the end.
class SilentTerminal {
  public:
    explicit SilentTerminal(int descriptor) : descriptor_(descriptor) {
        struct sigaction action {};
        action.sa_handler = Interrupt; // without SA_RESTART
        sigaction(SIGINT, &action, &interrupt_);
        sigaction(SIGTERM, &action, &terminate_);
        isTerminal_ = tcgetattr(descriptor, &before_) == 0;
        termios silent = before_;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        silent.c_lflag |= ECHONL;
        if (isTerminal_)
            tcsetattr(descriptor, TCSAFLUSH, &silent);
    }
    ~SilentTerminal() {
        if (isTerminal_)
            tcsetattr(descriptor_, TCSAFLUSH, &before_);
        sigaction(SIGINT, &interrupt_, nullptr);
        sigaction(SIGTERM, &terminate_, nullptr);
    }
    SilentTerminal(const SilentTerminal&) = delete;
    SilentTerminal& operator=(const SilentTerminal&) = delete;

  private:
    int descriptor_;
    bool isTerminal_ = false;
    termios before_{};
    struct sigaction interrupt_ {};
    struct sigaction terminate_ {};
};

} // namespace

PasswordSource::~PasswordSource() {
    ReleaseLockedMemory(memory_, sizeof(Memory));
    if (descriptor_ > STDIN_FILENO)
        close(descriptor_);
}

ExitCode PasswordSource::Ask(const char* prompt, TextView& password) {
    if (memory_ == nullptr)
        memory_ = static_cast<Memory*>(AllocateLockedMemory(sizeof(Memory)));
    if (memory_ == nullptr)
        return Fail(ExitCode::SystemLacks, "there is no memory");
    return AskInto(prompt, memory_->text[0], password);
}

ExitCode PasswordSource::AskNew(const char* prompt, TextView& password) {
    const ExitCode first = Ask(prompt, password);
    if (first != ExitCode::Done || file_ != nullptr)
        return first;
    TextView again;
    const ExitCode second = AskInto("The same again: ", memory_->text[1], again);
    if (second == ExitCode::Done && again != password)
        return Fail(ExitCode::WrongPassword, "the two passwords differ; nothing has been changed");
    return second;
}

ExitCode PasswordSource::AskInto(const char* prompt, std::span<TextUnit> text, TextView& password) {
    std::size_t length = 0;
    const ExitCode code = file_ == nullptr ? ReadTerminal(prompt, length) : ReadFile(length);
    if (code != ExitCode::Done)
        return code;
    const std::span<TextUnit> room = text.first(text.size() - 1);
    const std::size_t units = ToUtf16({memory_->line, length}, room);
    Wipe(memory_->line);
    if (units > room.size())
        return Fail(ExitCode::Usage, "a password has at most %zu characters of UTF-8 text", room.size());
    password = TextView(text.data(), units);
    return ExitCode::Done;
}

bool PasswordSource::ReadLine(int descriptor, std::size_t& length) {
    length = 0;
    for (;;) {
        char next = 0;
        const ssize_t count = read(descriptor, &next, 1);
        if (count < 0)
            return false;
        if (count == 0)
            return length > 0;
        if (next == '\n')
            break;
        if (length == kLineSize)
            return false;
        memory_->line[length++] = next;
    }
    if (length > 0 && memory_->line[length - 1] == '\r')
        --length;
    return true;
}

ExitCode PasswordSource::ReadTerminal(const char* prompt, std::size_t& length) {
    if (descriptor_ < 0)
        descriptor_ = open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY);
    if (descriptor_ < 0)
        return Fail(
            ExitCode::Usage,
            "there is no terminal to ask for the password; use --password-file FILE (- = standard input)");
    const SilentTerminal silent(descriptor_);
    static_cast<void>(!write(descriptor_, prompt, std::strlen(prompt)));
    if (ReadLine(descriptor_, length))
        return ExitCode::Done;
    return Fail(ExitCode::Usage, "no password was given");
}

ExitCode PasswordSource::ReadFile(std::size_t& length) {
    if (descriptor_ < 0)
        descriptor_ = std::strcmp(file_, "-") == 0 ? STDIN_FILENO : open(file_, O_RDONLY | O_CLOEXEC);
    if (descriptor_ < 0)
        return Fail(ExitCode::BadFile, "cannot open %s: %s", file_, std::strerror(errno));
    if (ReadLine(descriptor_, length))
        return ExitCode::Done;
    return Fail(ExitCode::BadFile, "%s has too few lines with passwords, or one that is too long", file_);
}

std::size_t ToUtf16(std::string_view text, std::span<TextUnit> room) {
    const std::size_t failed = room.size() + 1;
    std::size_t units = 0;
    for (std::size_t i = 0; i < text.size();) {
        const auto first = static_cast<unsigned char>(text[i]);
        const std::size_t length = first < 0x80 ? 1 : first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
        constexpr std::uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
        if ((first >= 0x80 && first < 0xC0) || first > 0xF4 || text.size() - i < length)
            return failed;
        std::uint32_t point = length == 1 ? first : first & (0xFFU >> (length + 1));
        for (std::size_t k = 1; k < length; ++k) {
            const auto next = static_cast<unsigned char>(text[i + k]);
            if ((next & 0xC0U) != 0x80)
                return failed;
            point = point << 6 | (next & 0x3FU);
        }
        if (point < kSmallest[length] || point > 0x10FFFF || (point >= 0xD800 && point < 0xE000))
            return failed;
        const std::size_t needed = point < 0x10000 ? 1 : 2;
        if (room.size() - units < needed)
            return failed;
        if (needed == 2) {
            room[units++] = static_cast<TextUnit>(0xD800 + ((point - 0x10000) >> 10));
            point = 0xDC00 + ((point - 0x10000) & 0x3FF);
        }
        room[units++] = static_cast<TextUnit>(point);
        i += length;
    }
    return units;
}

} // namespace quilla
