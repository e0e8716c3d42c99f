// Programs of the system that the command has run for it, such as mount and mkfs.

#include "linux/tool.h"

#include "linux/descriptor.h"
#include "linux/message.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace quilla {

namespace {

constexpr const char* kFolders[] = {"/usr/sbin/", "/usr/bin/", "/sbin/", "/bin/"};
constexpr std::size_t kMaxSaid = 2000;

std::vector<char*> Pointers(std::vector<std::string>& words) {
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (std::string& word : words)
        pointers.push_back(word.data());
    pointers.push_back(nullptr);
    return pointers;
}

/// The user's environment without what could make a program load or print other things.
std::vector<std::string> Environment(const std::string& variable) {
    std::vector<std::string> kept = {"LC_ALL=C", "PATH=/usr/sbin:/usr/bin:/sbin:/bin"};
    for (const char* const name : {"HOME", "USER", "XDG_RUNTIME_DIR", "DBUS_SESSION_BUS_ADDRESS"})
        if (const char* const value = std::getenv(name))
            kept.push_back(std::string(name) + "=" + value);
    if (!variable.empty())
        kept.push_back(variable);
    return kept;
}

} // namespace

std::string FindTool(const char* name) {
    for (const char* const folder : kFolders) {
        std::string path = std::string(folder) + name;
        if (access(path.c_str(), X_OK) == 0)
            return path;
    }
    return {};
}

void TellMissing(const char* tool, const char* package) {
    Warn("%s is not installed; the package %s has it", tool, package);
}

int StartTool(const ToolRun& run, int& output) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return -1;
    Descriptor reading(ends[0]);
    const Descriptor writing(ends[1]);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, writing.Get(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, writing.Get(), STDERR_FILENO);
    if (run.passed >= 0)
        posix_spawn_file_actions_adddup2(&actions, run.passed, 3);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    std::vector<std::string> words = run.words;
    std::vector<std::string> environment = Environment(run.variable);
    pid_t process = -1;
    const int error = posix_spawn(&process, words[0].c_str(), &actions, &attributes, Pointers(words).data(),
                                  Pointers(environment).data());
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0)
        return -1;
    output = reading.Release();
    return process;
}

int RunTool(const ToolRun& run, std::string& said) {
    int output = -1;
    const int process = StartTool(run, output);
    if (process < 0)
        return -1;
    const Descriptor reading(output);
    std::array<char, 512> piece;
    for (;;) {
        const ssize_t count = read(reading.Get(), piece.data(), piece.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            break;
        if (said.size() < kMaxSaid)
            said.append(piece.data(), static_cast<std::size_t>(count));
    }
    while (!said.empty() && said.back() == '\n')
        said.pop_back();
    int status = 0;
    while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace quilla
