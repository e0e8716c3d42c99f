#include "platform/socket.h"

#include <cerrno>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

namespace quilla {

namespace {

int Descriptor(std::uintptr_t handle) {
    return static_cast<int>(handle);
}

sockaddr_in LoopbackAddress(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

std::uint64_t Nanoseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000 + static_cast<std::uint64_t>(now.tv_nsec);
}

/// The process at the other end of a socket that lies on a path; 0 if the system does not tell.
std::uint32_t PeerProcess(int descriptor) {
    ucred peer{};
    socklen_t size = sizeof(peer);
    return getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0
               ? static_cast<std::uint32_t>(peer.pid)
               : 0;
}

/// Keeps the last error over the clean-up.
void CloseQuietly(int descriptor) {
    const int error = errno;
    close(descriptor);
    errno = error;
}

} // namespace

bool Socket::Prepare() {
    const int on = 1;
    return setsockopt(Descriptor(handle_), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on)) == 0 ||
           errno == EOPNOTSUPP; // not TCP: nothing is delayed
}

Socket Socket::ConnectLoopback(std::uint16_t port) {
    Socket connection;
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0)
        return connection;
    connection.handle_ = static_cast<std::uintptr_t>(descriptor);
    const sockaddr_in address = LoopbackAddress(port);
    if (connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        !connection.Prepare())
        connection.Close();
    return connection;
}

/// After a few looks in vain the peer is not one that answers at once, or another program needs the
/// processor: then only every 64th receive tries again.
bool Socket::IsLookWorthwhile() {
    constexpr std::uint8_t kPatience = 4, kRetry = 64;
    if (!looks_ || looksInVain_ < kPatience)
        return looks_;
    looksLeftOut_ = static_cast<std::uint8_t>((looksLeftOut_ + 1) % kRetry);
    return looksLeftOut_ == 0;
}

/// Receives without waiting, until there is something or the time for looking is over.
bool Socket::LookForData(std::span<std::byte> buffer, std::size_t& count) {
    constexpr std::uint64_t kNanoseconds = 50'000;
    const std::uint64_t start = Nanoseconds();
    for (bool isFirst = true;; isFirst = false) {
        const ssize_t received = recv(Descriptor(handle_), buffer.data(), buffer.size(), MSG_DONTWAIT);
        if (received >= 0) {
            if (!isFirst)
                looksInVain_ = 0;
            count = static_cast<std::size_t>(received);
            return true;
        }
        if ((errno != EAGAIN && errno != EINTR) || Nanoseconds() - start > kNanoseconds)
            break;
        sched_yield();
    }
    if (looksInVain_ < 0xFF)
        ++looksInVain_;
    return false;
}

std::size_t Socket::Receive(std::span<std::byte> buffer) {
    std::size_t found = 0;
    if (IsLookWorthwhile() && LookForData(buffer, found))
        return found;
    for (;;) {
        const ssize_t count = recv(Descriptor(handle_), buffer.data(), buffer.size(), 0);
        if (count >= 0)
            return static_cast<std::size_t>(count);
        if (errno != EINTR)
            return 0;
    }
}

bool Socket::Send(std::span<const std::byte> bytes) {
    while (!bytes.empty()) {
        const ssize_t count = send(Descriptor(handle_), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return false;
        bytes = bytes.subspan(static_cast<std::size_t>(count));
    }
    return true;
}

void Socket::SetTimeout(std::uint32_t milliseconds) {
    timeout_ = milliseconds;
    timeval limit{};
    limit.tv_sec = static_cast<time_t>(milliseconds / 1000);
    limit.tv_usec = static_cast<suseconds_t>((milliseconds % 1000) * 1000);
    setsockopt(Descriptor(handle_), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    setsockopt(Descriptor(handle_), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
}

void Socket::StopReceiving() {
    shutdown(Descriptor(handle_), SHUT_RD); // what is queued can still be read
}

void Socket::FinishSending() {
    shutdown(Descriptor(handle_), SHUT_WR);
}

void Socket::Shutdown() {
    shutdown(Descriptor(handle_), SHUT_RDWR);
}

void Socket::Close() {
    if (IsOpen())
        CloseQuietly(Descriptor(std::exchange(handle_, kNone)));
}

bool Listener::Open(std::uint16_t port) {
    Close();
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0)
        return false;
    handle_ = static_cast<std::uintptr_t>(descriptor);
    // Lets a restarted server take its fixed port again; two listeners still exclude each other.
    const int on = 1;
    setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    sockaddr_in address = LoopbackAddress(port);
    socklen_t length = sizeof(address);
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (bind(descriptor, generic, length) != 0 || listen(descriptor, kBacklog) != 0 ||
        getsockname(descriptor, generic, &length) != 0) {
        Close();
        return false;
    }
    port_ = ntohs(address.sin_port);
    return true;
}

bool Listener::Adopt(int descriptor) {
    Close();
    handle_ = static_cast<std::uintptr_t>(descriptor);
    if (descriptor < 0 || listen(descriptor, kBacklog) != 0)
        Close();
    return IsOpen();
}

Socket Listener::Accept() {
    Socket connection;
    int descriptor = -1;
    sockaddr_in peer{};
    socklen_t size = sizeof(peer);
    do
        descriptor = accept4(Descriptor(handle_), reinterpret_cast<sockaddr*>(&peer), &size, SOCK_CLOEXEC);
    while (descriptor < 0 && (errno == EINTR || errno == ECONNABORTED));
    if (descriptor >= 0) {
        connection.handle_ = static_cast<std::uintptr_t>(descriptor);
        connection.peer_ = peer.sin_family == AF_INET ? peer.sin_addr.s_addr : PeerProcess(descriptor);
        if (!connection.Prepare())
            connection.Close();
    }
    return connection;
}

void Listener::Stop() {
    if (IsOpen())
        shutdown(Descriptor(handle_), SHUT_RDWR); // a waiting accept returns with EINVAL
}

void Listener::Close() {
    if (IsOpen())
        CloseQuietly(Descriptor(std::exchange(handle_, kNone)));
    port_ = 0;
}

} // namespace quilla
