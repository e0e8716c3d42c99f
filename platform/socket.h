#pragma once

#include "platform/byte_stream.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>

namespace quilla {

/// A connected stream, over TCP without delay of small segments. One thread may send while another receives;
/// a third may end either. Ending and closing are two things: only the owner closes, after the others are
/// done with it.
class Socket final : public ByteStream {
  public:
    Socket() = default;
    ~Socket() override { Close(); }
    Socket(Socket&& other) noexcept { Swap(other); }
    Socket& operator=(Socket&& other) noexcept {
        Swap(other);
        return *this;
    }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    /// Connects to a port of this machine; not open on failure.
    [[nodiscard]] static Socket ConnectLoopback(std::uint16_t port);

    [[nodiscard]] bool IsOpen() const { return handle_ != kNone; }

    /// Whom an accepted connection comes from: an IPv4 address in the byte order of the network, or, on a
    /// socket that lies on a path, a process.
    [[nodiscard]] std::uint32_t Peer() const { return peer_; }

    [[nodiscard]] std::size_t Receive(std::span<std::byte> buffer) override;
    [[nodiscard]] bool Send(std::span<const std::byte> bytes) override;
    void SetTimeout(std::uint32_t milliseconds) override;

    /// From now on Receive looks for data again and again for some 50 microseconds before it waits, as long
    /// as that is worth it: an answer to a lone request leaves sooner, at the cost of processor time. It does
    /// so only where looking is cheap: not on Windows.
    void LookBeforeWaiting() { looks_ = true; }

    /// From now on Receive, one that waits in another thread included, takes only what has arrived already
    /// and never waits. Sending goes on.
    void StopReceiving();

    /// Tells the peer that nothing more will be sent.
    void FinishSending();

    /// Ends both directions at once: a Receive or Send of another thread returns.
    void Shutdown();

    void Close();

  private:
    friend class Listener;
    static constexpr std::uintptr_t kNone = ~std::uintptr_t{0};

    void Swap(Socket& other) noexcept {
        std::swap(handle_, other.handle_);
        std::swap(arrival_, other.arrival_);
        std::swap(stop_, other.stop_);
        std::swap(peer_, other.peer_);
        std::swap(timeout_, other.timeout_);
        std::swap(looks_, other.looks_);
    }
    bool Prepare();
    [[nodiscard]] bool IsLookWorthwhile();
    [[nodiscard]] bool LookForData(std::span<std::byte> buffer, std::size_t& count);

    std::uintptr_t handle_ = kNone;
    // Where nothing can wake a waiting receive, it waits for two events instead: data, or the order to stop.
    [[maybe_unused]] void* arrival_ = nullptr;
    [[maybe_unused]] void* stop_ = nullptr;
    std::uint32_t peer_ = 0;
    std::uint32_t timeout_ = 0;
    bool looks_ = false;
    [[maybe_unused]] std::uint8_t looksInVain_ = 0; // in a row
    [[maybe_unused]] std::uint8_t looksLeftOut_ = 0;
};

/// A listening TCP socket on the IPv4 loopback interface: no other machine can connect.
class Listener {
  public:
    Listener() = default;
    ~Listener() { Close(); }
    Listener(Listener&& other) noexcept { Swap(other); }
    Listener& operator=(Listener&& other) noexcept {
        Swap(other);
        return *this;
    }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    /// Starts listening; false if the system refuses. With port 0 the system chooses one.
    [[nodiscard]] bool Open(std::uint16_t port = 0);

    /// Starts listening on a bound stream socket of any kind, which it takes over. Natively only.
    [[nodiscard]] bool Adopt(int descriptor);

    [[nodiscard]] bool IsOpen() const { return handle_ != kNone; }
    [[nodiscard]] std::uint16_t Port() const { return port_; }

    /// Waits for the next connection; not open after Stop or on failure.
    [[nodiscard]] Socket Accept();

    /// Makes a waiting Accept of another thread, and every later one, return at once.
    void Stop();

    /// Frees the port; no Accept may be waiting.
    void Close();

  private:
    static constexpr std::uintptr_t kNone = ~std::uintptr_t{0};
    /// Connections that wait to be accepted. Few: one that comes when there are more is tried again by its
    /// system a second later, while the last of a long queue would wait for all before it.
    static constexpr int kBacklog = 64;

    void Swap(Listener& other) noexcept {
        std::swap(handle_, other.handle_);
        std::swap(arrival_, other.arrival_);
        std::swap(stop_, other.stop_);
        std::swap(port_, other.port_);
    }

    std::uintptr_t handle_ = kNone;
    [[maybe_unused]] void* arrival_ = nullptr; // as in Socket: a connection, or the order to stop
    [[maybe_unused]] void* stop_ = nullptr;
    std::uint16_t port_ = 0;
};

} // namespace quilla
