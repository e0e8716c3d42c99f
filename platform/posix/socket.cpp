#include "platform/socket.h"

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <unistd.h>
#include <utility>

namespace quilla {

namespace {

int Descriptor(std::uintptr_t handle) {
    return static_cast<int>(handle);
}

iovec Piece(std::span<const std::byte> bytes) {
    return {.iov_base = const_cast<std::byte*>(bytes.data()), .iov_len = bytes.size()};
}

} // namespace

Socket& Socket::operator=(Socket&& other) noexcept {
    if (this != &other) {
        Close();
        handle_ = std::exchange(other.handle_, kNone);
    }
    return *this;
}

std::size_t Socket::Receive(std::span<std::byte> buffer) {
    for (;;) {
        const ssize_t count = recv(Descriptor(handle_), buffer.data(), buffer.size(), 0);
        if (count >= 0)
            return static_cast<std::size_t>(count);
        if (errno != EINTR)
            return 0;
    }
}

bool Socket::Send(std::span<const std::byte> first, std::span<const std::byte> second) {
    while (!first.empty() || !second.empty()) {
        std::array<iovec, 2> pieces = {Piece(first), Piece(second)};
        msghdr message{};
        message.msg_iov = pieces.data();
        message.msg_iovlen = pieces.size();
        const ssize_t count = sendmsg(Descriptor(handle_), &message, MSG_NOSIGNAL);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return false;
        const auto sent = static_cast<std::size_t>(count);
        const std::size_t ofFirst = sent < first.size() ? sent : first.size();
        first = first.subspan(ofFirst);
        second = second.subspan(sent - ofFirst);
    }
    return true;
}

void Socket::SetTimeout(std::uint32_t milliseconds) {
    timeval limit{};
    limit.tv_sec = static_cast<time_t>(milliseconds / 1000);
    limit.tv_usec = static_cast<suseconds_t>((milliseconds % 1000) * 1000);
    setsockopt(Descriptor(handle_), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    setsockopt(Descriptor(handle_), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
}

void Socket::Shutdown() {
    shutdown(Descriptor(handle_), SHUT_RDWR);
}

void Socket::Close() {
    if (IsOpen())
        close(Descriptor(std::exchange(handle_, kNone)));
}

bool Listener::Open(std::uint16_t port) {
    Close();
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0)
        return false;
    handle_ = static_cast<std::uintptr_t>(descriptor);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    socklen_t length = sizeof(address);
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (bind(descriptor, generic, length) != 0 || listen(descriptor, SOMAXCONN) != 0 ||
        getsockname(descriptor, generic, &length) != 0) {
        Close();
        return false;
    }
    port_ = ntohs(address.sin_port);
    return true;
}

Socket Listener::Accept() {
    Socket connection;
    int descriptor = -1;
    do
        descriptor = accept4(Descriptor(handle_), nullptr, nullptr, SOCK_CLOEXEC);
    while (descriptor < 0 && (errno == EINTR || errno == ECONNABORTED));
    if (descriptor >= 0) {
        const int on = 1;
        setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
        connection.handle_ = static_cast<std::uintptr_t>(descriptor);
    }
    return connection;
}

void Listener::Stop() {
    shutdown(Descriptor(handle_), SHUT_RDWR);
}

void Listener::Close() {
    if (IsOpen())
        close(Descriptor(std::exchange(handle_, kNone)));
    port_ = 0;
}

} // namespace quilla
