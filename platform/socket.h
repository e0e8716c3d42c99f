#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace quilla {

/// A connected TCP stream. One thread may send while another receives.
class Socket {
  public:
    Socket() = default;
    ~Socket() { Close(); }
    Socket(Socket&& other) noexcept : handle_(other.handle_) { other.handle_ = kNone; }
    Socket& operator=(Socket&& other) noexcept;
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    [[nodiscard]] bool IsOpen() const { return handle_ != kNone; }

    /// Receives what is there, at least one byte, at most the buffer; 0 when the peer is gone, shut down or
    /// timed out.
    [[nodiscard]] std::size_t Receive(std::span<std::byte> buffer);

    /// Sends both pieces completely, in one system call where the platform allows; false when the peer is
    /// gone.
    [[nodiscard]] bool Send(std::span<const std::byte> first, std::span<const std::byte> second = {});

    /// Limits how long one Receive or Send may wait; 0 = no limit.
    void SetTimeout(std::uint32_t milliseconds);

    /// Ends both directions at once: a Receive or Send of another thread returns. The socket stays open.
    void Shutdown();

    void Close();

  private:
    friend class Listener;
    static constexpr std::uintptr_t kNone = ~std::uintptr_t{0};
    std::uintptr_t handle_ = kNone;
};

/// A listening TCP socket on the loopback interface, at a port chosen by the system.
class Listener {
  public:
    Listener() = default;
    ~Listener() { Close(); }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    /// Starts listening; false if the system refuses. With port 0 the system chooses one.
    [[nodiscard]] bool Open(std::uint16_t port = 0);

    [[nodiscard]] bool IsOpen() const { return handle_ != kNone; }
    [[nodiscard]] std::uint16_t Port() const { return port_; }

    /// Waits for the next connection (TCP_NODELAY set); not open after Stop or on failure.
    [[nodiscard]] Socket Accept();

    /// Makes a waiting Accept of another thread, and every later one, return at once.
    void Stop();

    void Close();

  private:
    static constexpr std::uintptr_t kNone = ~std::uintptr_t{0};
    std::uintptr_t handle_ = kNone;
    std::uint16_t port_ = 0;
};

} // namespace quilla
