#include "platform/socket.h"

#include <algorithm>
#include <array>
#include <bit>
#include <windows.h>
#include <winsock2.h>

namespace quilla {

namespace {

constexpr std::size_t kLargestTransfer = 1U << 30;

BOOL CALLBACK StartWinsockOnce(INIT_ONCE*, void*, void**) {
    WSADATA data{};
    return WSAStartup(MAKEWORD(2, 2), &data) == 0;
}

/// Winsock is started once per process and stays until the process ends.
bool StartWinsock() {
    static INIT_ONCE once = INIT_ONCE_STATIC_INIT;
    return InitOnceExecuteOnce(&once, StartWinsockOnce, nullptr, nullptr) != FALSE;
}

sockaddr_in LoopbackAddress(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

ULONG TransferLength(std::size_t size) {
    return static_cast<ULONG>(std::min(size, kLargestTransfer));
}

void CloseEvent(void*& event) {
    if (event != nullptr)
        WSACloseEvent(std::exchange(event, nullptr));
}

/// Waits for the first event or the order to stop; true if the first came.
bool WaitFor(void* event, void* stop, std::uint32_t milliseconds) {
    const std::array<HANDLE, 2> events = {event, stop};
    return WaitForMultipleObjects(static_cast<DWORD>(events.size()), events.data(), FALSE,
                                  milliseconds == 0 ? INFINITE : milliseconds) == WAIT_OBJECT_0;
}

} // namespace

bool Socket::Prepare() {
    arrival_ = WSACreateEvent();
    stop_ = WSACreateEvent();
    const BOOL on = TRUE;
    return arrival_ != nullptr && stop_ != nullptr &&
           setsockopt(handle_, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&on), sizeof(on)) == 0;
}

Socket Socket::ConnectLoopback(std::uint16_t port) {
    Socket connection;
    if (!StartWinsock())
        return connection;
    connection.handle_ = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    const sockaddr_in address = LoopbackAddress(port);
    if (connection.IsOpen() &&
        (connect(connection.handle_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
         !connection.Prepare()))
        connection.Close();
    return connection;
}

std::size_t Socket::Receive(std::span<std::byte> buffer) {
    WSABUF piece{};
    piece.len = TransferLength(buffer.size());
    piece.buf = reinterpret_cast<char*>(buffer.data());
    WSAOVERLAPPED request{};
    request.hEvent = arrival_;
    DWORD count = 0;
    DWORD flags = 0;
    if (WSARecv(handle_, &piece, 1, &count, &flags, &request, nullptr) == 0)
        return count;
    if (WSAGetLastError() != WSA_IO_PENDING)
        return 0;
    if (!WaitFor(arrival_, stop_, timeout_))
        CancelIoEx(std::bit_cast<HANDLE>(handle_), &request);
    // A request that was complete when it was to be cancelled still delivers.
    return WSAGetOverlappedResult(handle_, &request, &count, TRUE, &flags) ? count : 0;
}

bool Socket::Send(std::span<const std::byte> bytes) {
    while (!bytes.empty()) {
        WSABUF piece{};
        piece.len = TransferLength(bytes.size());
        piece.buf = reinterpret_cast<char*>(const_cast<std::byte*>(bytes.data()));
        DWORD sent = 0;
        if (WSASend(handle_, &piece, 1, &sent, 0, nullptr, nullptr) != 0)
            return false;
        bytes = bytes.subspan(sent);
    }
    return true;
}

void Socket::SetTimeout(std::uint32_t milliseconds) {
    timeout_ = milliseconds; // Receive waits by itself
    const DWORD limit = milliseconds;
    setsockopt(handle_, SOL_SOCKET, SO_SNDTIMEO, reinterpret_cast<const char*>(&limit), sizeof(limit));
}

void Socket::StopReceiving() {
    if (stop_ != nullptr)
        WSASetEvent(stop_);
}

void Socket::FinishSending() {
    shutdown(handle_, SD_SEND);
}

void Socket::Shutdown() {
    StopReceiving();
    // New calls fail after the first, calls that wait are ended by the second.
    shutdown(handle_, SD_BOTH);
    CancelIoEx(std::bit_cast<HANDLE>(handle_), nullptr);
}

void Socket::Close() {
    if (IsOpen())
        closesocket(std::exchange(handle_, kNone));
    CloseEvent(arrival_);
    CloseEvent(stop_);
}

bool Listener::Open(std::uint16_t port) {
    Close();
    if (!StartWinsock())
        return false;
    handle_ = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    if (!IsOpen())
        return false;
    arrival_ = WSACreateEvent();
    stop_ = WSACreateEvent();
    // Nobody else may listen at the same port and take over connections.
    const BOOL on = TRUE;
    sockaddr_in address = LoopbackAddress(port);
    int length = sizeof(address);
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (arrival_ == nullptr || stop_ == nullptr ||
        setsockopt(handle_, SOL_SOCKET, SO_EXCLUSIVEADDRUSE, reinterpret_cast<const char*>(&on),
                   sizeof(on)) != 0 ||
        bind(handle_, generic, length) != 0 || listen(handle_, kBacklog) != 0 ||
        getsockname(handle_, generic, &length) != 0 || WSAEventSelect(handle_, arrival_, FD_ACCEPT) != 0) {
        Close();
        return false;
    }
    port_ = ntohs(address.sin_port);
    return true;
}

Socket Listener::Accept() {
    Socket connection;
    sockaddr_in peer{};
    int size = sizeof(peer);
    for (;;) {
        // A waiting accept cannot be woken, so the socket does not block and the wait is for events.
        WSANETWORKEVENTS happened{};
        if (!WaitFor(arrival_, stop_, 0) || WSAEnumNetworkEvents(handle_, arrival_, &happened) != 0)
            return connection;
        connection.handle_ = accept(handle_, reinterpret_cast<sockaddr*>(&peer), &size);
        if (connection.IsOpen())
            break;
        if (WSAGetLastError() != WSAEWOULDBLOCK && WSAGetLastError() != WSAECONNRESET)
            return connection;
    }
    connection.peer_ = peer.sin_addr.s_addr;
    // The accepted socket inherits the events and does not block either.
    u_long nonBlocking = 0;
    if (WSAEventSelect(connection.handle_, nullptr, 0) != 0 ||
        ioctlsocket(connection.handle_, static_cast<long>(FIONBIO), &nonBlocking) != 0 ||
        !connection.Prepare())
        connection.Close();
    return connection;
}

void Listener::Stop() {
    if (stop_ != nullptr)
        WSASetEvent(stop_);
}

void Listener::Close() {
    if (IsOpen())
        closesocket(std::exchange(handle_, kNone));
    CloseEvent(arrival_);
    CloseEvent(stop_);
    port_ = 0;
}

} // namespace quilla
