#include "platform/socket.h"

#include <algorithm>
#include <utility>
#include <winsock2.h>

namespace quilla {

namespace {

constexpr std::size_t kLargestTransfer = 1U << 30;

/// Winsock must be started once per process; it stays until the process ends.
bool StartWinsock() {
    WSADATA data{};
    static const bool started = WSAStartup(MAKEWORD(2, 2), &data) == 0;
    return started;
}

WSABUF Piece(std::span<const std::byte> bytes) {
    WSABUF piece{};
    piece.len = static_cast<ULONG>(std::min(bytes.size(), kLargestTransfer));
    piece.buf = reinterpret_cast<char*>(const_cast<std::byte*>(bytes.data()));
    return piece;
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
    const int count = recv(handle_, reinterpret_cast<char*>(buffer.data()),
                           static_cast<int>(std::min(buffer.size(), kLargestTransfer)), 0);
    return count > 0 ? static_cast<std::size_t>(count) : 0;
}

bool Socket::Send(std::span<const std::byte> first, std::span<const std::byte> second) {
    while (!first.empty() || !second.empty()) {
        WSABUF pieces[] = {Piece(first), Piece(second)};
        DWORD sent = 0;
        const bool skipFirst = first.empty();
        if (WSASend(handle_, pieces + skipFirst, skipFirst || second.empty() ? 1 : 2, &sent, 0, nullptr,
                    nullptr) != 0)
            return false;
        const std::size_t ofFirst = std::min<std::size_t>(sent, first.size());
        first = first.subspan(ofFirst);
        second = second.subspan(sent - ofFirst);
    }
    return true;
}

void Socket::SetTimeout(std::uint32_t milliseconds) {
    const DWORD limit = milliseconds;
    setsockopt(handle_, SOL_SOCKET, SO_RCVTIMEO, reinterpret_cast<const char*>(&limit), sizeof(limit));
    setsockopt(handle_, SOL_SOCKET, SO_SNDTIMEO, reinterpret_cast<const char*>(&limit), sizeof(limit));
}

void Socket::Shutdown() {
    shutdown(handle_, SD_BOTH);
}

void Socket::Close() {
    if (IsOpen())
        closesocket(std::exchange(handle_, kNone));
}

bool Listener::Open(std::uint16_t port) {
    Close();
    if (!StartWinsock())
        return false;
    handle_ = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    if (!IsOpen())
        return false;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    int length = sizeof(address);
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (bind(handle_, generic, length) != 0 || listen(handle_, SOMAXCONN) != 0 ||
        getsockname(handle_, generic, &length) != 0) {
        Close();
        return false;
    }
    port_ = ntohs(address.sin_port);
    return true;
}

Socket Listener::Accept() {
    Socket connection;
    connection.handle_ = accept(handle_, nullptr, nullptr);
    if (connection.IsOpen()) {
        const BOOL on = TRUE;
        setsockopt(connection.handle_, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&on),
                   sizeof(on));
    }
    return connection;
}

void Listener::Stop() {
    // A blocked accept returns only when its socket goes away or a last connection arrives.
    const SOCKET listening = std::exchange(handle_, kNone);
    if (listening != kNone)
        closesocket(listening);
}

void Listener::Close() {
    Stop();
    port_ = 0;
}

} // namespace quilla
