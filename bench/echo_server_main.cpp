// quilla-echo-server: the floor under every figure of an NBD server on this machine. It answers read requests
// of one client after another with as many zeros, by plain blocking calls of the platform's sockets and
// without any of this project's code: no lock, no file, no cipher. What a server adds to it is the server's
// own.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#ifdef _WIN32
#include <winsock2.h>
using SocketLength = int;
#else
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>
using SOCKET = int;
using SocketLength = socklen_t;
static int closesocket(int descriptor) {
    return close(descriptor);
}
#endif

namespace {

constexpr std::size_t kRequestSize = 28;
constexpr std::size_t kReplySize = 16;

bool SendAll(SOCKET client, const char* bytes, std::size_t size) {
    while (size > 0) {
        const auto sent = send(client, bytes, static_cast<int>(size), 0);
        if (sent <= 0)
            return false;
        bytes += sent;
        size -= static_cast<std::size_t>(sent);
    }
    return true;
}

std::uint32_t Load32(const char* at) {
    std::uint32_t value = 0;
    std::memcpy(&value, at, sizeof(value));
    return ntohl(value);
}

/// Greeting, whatever the client says to it, and an export of 64 MiB.
bool Welcome(SOCKET client, std::vector<char>& buffer) {
    constexpr char kGreeting[] = "NBDMAGICIHAVEOPT\0\3";
    constexpr char kInfo[] =
        "\0\3\350\211\4\125\145\251\0\0\0\7\0\0\0\3\0\0\0\14" // an information of 12 bytes:
        "\0\0\0\0\0\0\4\0\0\0\0\1"                            // size and flags
        "\0\3\350\211\4\125\145\251\0\0\0\7\0\0\0\1\0\0\0";   // acknowledged
    return SendAll(client, kGreeting, 18) &&
           recv(client, buffer.data(), static_cast<int>(buffer.size()), 0) > 0 && SendAll(client, kInfo, 52);
}

void Echo(SOCKET client) {
    std::vector<char> buffer(1U << 20);
    std::vector<char> replies(1U << 20);
    std::size_t filled = 0;
    if (!Welcome(client, buffer))
        return;
    for (;;) {
        const auto got = recv(client, buffer.data() + filled, static_cast<int>(buffer.size() - filled), 0);
        if (got <= 0)
            return;
        filled += static_cast<std::size_t>(got);
        std::size_t used = 0;
        std::size_t gathered = 0;
        for (; filled - used >= kRequestSize; used += kRequestSize) {
            const char* const request = buffer.data() + used;
            const std::size_t size = kReplySize + Load32(request + 24);
            if (size > replies.size() ||
                (gathered + size > replies.size() && !SendAll(client, replies.data(), gathered)))
                return;
            gathered = gathered + size > replies.size() ? 0 : gathered;
            std::memcpy(&replies[gathered], "\x67\x44\x66\x98\0\0\0\0", 8);
            std::memcpy(&replies[gathered + 8], request + 8, 8);
            gathered += size;
        }
        if (!SendAll(client, replies.data(), gathered))
            return;
        filled -= used;
        std::memmove(buffer.data(), buffer.data() + used, filled);
    }
}

} // namespace

int main() {
#ifdef _WIN32
    WSADATA data{};
    if (WSAStartup(MAKEWORD(2, 2), &data) != 0)
        return EXIT_FAILURE;
#endif
    const SOCKET listener = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    SocketLength length = sizeof(address);
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (bind(listener, generic, length) != 0 || listen(listener, 1) != 0 ||
        getsockname(listener, generic, &length) != 0)
        return EXIT_FAILURE;
    std::printf("nbd://127.0.0.1:%u/\n", unsigned{ntohs(address.sin_port)});
    std::fflush(stdout);
    for (;;) {
        const SOCKET client = accept(listener, nullptr, nullptr);
        const int on = 1;
        setsockopt(client, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&on), sizeof(on));
        Echo(client);
        closesocket(client);
    }
}
