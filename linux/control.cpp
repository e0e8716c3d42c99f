#include "linux/control.h"

#include "linux/runtime_folder.h"
#include "linux/unix_address.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

namespace quilla {

namespace {

constexpr std::size_t kMessageSize = 16384;
/// Seconds that a service may take to answer; a hung one never does.
constexpr time_t kPatience = 10;

/// A newline in a path must not look like the next field.
std::string Escape(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        if (c == '\n' || c == '\\')
            escaped += '\\';
        escaped += c == '\n' ? 'n' : c;
    }
    return escaped;
}

std::string Unescape(const std::string& text) {
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool isEscape = text[i] == '\\' && i + 1 < text.size();
        if (isEscape)
            ++i;
        plain += isEscape && text[i] == 'n' ? '\n' : text[i];
    }
    return plain;
}

std::string Line(const char* name, const std::string& value) {
    return std::string(name) + "=" + Escape(value) + "\n";
}

std::string Field(const std::string& text, const char* name) {
    std::string start("\n");
    start.append(name).append("=");
    const std::size_t at = text.find(start);
    if (at == text.npos)
        return {};
    const std::size_t begin = at + start.size();
    return Unescape(text.substr(begin, text.find('\n', begin) - begin));
}

std::uint64_t Number(const std::string& text, const char* name) {
    return std::strtoull(Field(text, name).c_str(), nullptr, 10);
}

std::string Words(const std::vector<int>& numbers) {
    std::string text;
    for (const int number : numbers)
        text += std::to_string(number) + " ";
    return text;
}

std::vector<int> Numbers(const std::string& text) {
    std::vector<int> numbers;
    const char* at = text.c_str();
    char* end = nullptr;
    for (long number = std::strtol(at, &end, 10); end != at; number = std::strtol(at, &end, 10)) {
        numbers.push_back(static_cast<int>(number));
        at = end;
    }
    return numbers;
}

} // namespace

std::string Pack(const MountState& state) {
    return std::string("\n").append(Line("volume", state.volume)) + Line("key", state.key) +
           Line("place", state.place) + Line("folder", state.folder) + Line("device", state.device) +
           Line("cipher", state.cipher) + Line("size", std::to_string(state.size)) +
           Line("timeout", std::to_string(state.timeoutSeconds)) +
           Line("idle", std::to_string(state.idleSeconds)) + Line("process", std::to_string(state.process)) +
           Line("folderdevice", std::to_string(state.folderDevice)) +
           Line("connection", std::to_string(state.connection)) + Line("clients", Words(state.clients)) +
           Line("readonly", state.isReadOnly ? "1" : "0");
}

MountState Unpack(const std::string& text) {
    return {.volume = Field(text, "volume"),
            .key = Field(text, "key"),
            .place = Field(text, "place"),
            .folder = Field(text, "folder"),
            .device = Field(text, "device"),
            .cipher = Field(text, "cipher"),
            .size = Number(text, "size"),
            .timeoutSeconds = Number(text, "timeout"),
            .idleSeconds = Number(text, "idle"),
            .process = static_cast<int>(Number(text, "process")),
            .folderDevice = Number(text, "folderdevice"),
            .connection = static_cast<unsigned>(Number(text, "connection")),
            .clients = Numbers(Field(text, "clients")),
            .isReadOnly = Number(text, "readonly") != 0};
}

Descriptor ListenForControl(const std::string& id) {
    const std::string path = ControlPath(id);
    UnixAddress address;
    Descriptor listener(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    unlink(path.c_str()); // the lock on the data file is ours: whoever made it is dead
    if (!address.Fill(path) || bind(listener.Get(), address.Get(), address.Size()) != 0 ||
        listen(listener.Get(), 8) != 0)
        listener.Close();
    return listener;
}

Descriptor ConnectControl(const std::string& id) {
    const std::string path = ControlPath(id);
    UnixAddress address;
    Descriptor connection(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    const timeval limit{.tv_sec = kPatience, .tv_usec = 0};
    setsockopt(connection.Get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    setsockopt(connection.Get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
    if (address.Fill(path) && connect(connection.Get(), address.Get(), address.Size()) == 0)
        return connection;
    return {};
}

bool SendMessage(int descriptor, const std::string& text) {
    return send(descriptor, text.data(), text.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
}

std::string ReceiveMessage(int descriptor) {
    std::string text(kMessageSize, '\0');
    ssize_t count = 0;
    do
        count = recv(descriptor, text.data(), text.size(), 0);
    while (count < 0 && errno == EINTR);
    text.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
    return text;
}

bool AskState(const std::string& id, MountState& state) {
    const Descriptor connection = ConnectControl(id);
    state.service = connection.IsOpen() || errno == EAGAIN ? ServiceLife::Hangs : ServiceLife::Dead;
    if (!connection.IsOpen() || !SendMessage(connection.Get(), kAskState))
        return false;
    const std::string answer = ReceiveMessage(connection.Get());
    if (answer.empty())
        return false;
    state = Unpack(answer);
    state.service = ServiceLife::Answers;
    return true;
}

void NoteState(const std::string& id, const MountState& state) {
    const std::string path = StatePath(id);
    unlink(path.c_str());
    const Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    const std::string text = Pack(state);
    static_cast<void>(!write(file.Get(), text.data(), text.size())); // without it, only --force is helpless
}

MountState NotedState(const std::string& id) {
    const Descriptor file(open(StatePath(id).c_str(), O_RDONLY | O_CLOEXEC));
    std::string text(kMessageSize, '\0');
    const ssize_t count = read(file.Get(), text.data(), text.size());
    text.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
    return Unpack(text);
}

bool IsStillMounted(const MountState& state) {
    struct stat status {};
    return stat(state.folder.c_str(), &status) == 0 ? status.st_dev == state.folderDevice : errno == ENOTCONN;
}

void RemoveTraces(const std::string& id) {
    unlink(ControlPath(id).c_str());
    unlink(StatePath(id).c_str());
    unlink(NbdPath(id).c_str());
    rmdir(DrivePath(id).c_str());
}

std::vector<MountState> AllMounted() {
    std::vector<MountState> states;
    for (const std::string& id : KnownIds()) {
        MountState state = NotedState(id);
        if (AskState(id, state) || state.service == ServiceLife::Hangs || IsStillMounted(state))
            states.push_back(state);
        else
            RemoveTraces(id);
    }
    return states;
}

} // namespace quilla
