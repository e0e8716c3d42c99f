#pragma once

#include "export/stop_report.h"
#include "platform/block_device.h"
#include "platform/socket.h"
#include "platform/thread.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

namespace quilla {

class Connection;

/// Limits of a server; the defaults suit a mounted volume.
struct ServerLimits {
    /// Time a client has for its whole handshake.
    std::uint32_t handshakeMilliseconds = 10'000;
    /// Time that Stop gives clients to take the replies to what is in flight.
    std::uint32_t stopMilliseconds = 3'000;
    /// Whether a receive looks for more before it waits (see Socket::LookBeforeWaiting).
    bool looksBeforeWaiting = true;
};

/// How far a server is on its way to the end; it never goes back.
enum class ServerPhase : std::uint8_t {
    Serving,
    /// Complete what has been received, take in nothing new.
    Stopping,
    /// Give up long requests, too.
    Aborting,
};

/// What the servers of all protocols have in common: a listener on loopback TCP, a bounded number of
/// connections with a thread each, and an orderly end. A malformed or stalled peer costs only its own
/// connection. The destructor of a derived class calls Stop.
class StreamServer {
  public:
    /// Connections at a time. When all are taken, one still in its handshake makes room for a newcomer: the
    /// oldest of the address that has most of them, so that nobody is driven out by another address's flood.
    /// With none in its handshake the newcomer is closed.
    static constexpr std::size_t kMaxConnections = 16;

    /// The device must outlive the server. The label says in traces what is served; it is no secret.
    StreamServer(BlockDevice& device, std::string_view label, ServerLimits limits);
    virtual ~StreamServer();
    StreamServer(const StreamServer&) = delete;
    StreamServer& operator=(const StreamServer&) = delete;

    /// Starts to listen (port 0 = the system chooses) and to serve; false if the system refuses.
    [[nodiscard]] bool Start(std::uint16_t port = 0);

    /// Serves on a listener that is open already.
    [[nodiscard]] bool Start(Listener listener);

    /// The port clients connect to; 0 before Start.
    [[nodiscard]] std::uint16_t Port() const { return port_; }

    /// Clients that have finished their handshake and are attached at present.
    [[nodiscard]] unsigned ConnectedClients() const { return attached_.load(); }

    /// Where these come from, as their sockets tell it; returns how many of them were told.
    [[nodiscard]] std::size_t AttachedPeers(std::span<std::uint32_t> peers) const;

    /// Completes what is in flight, disconnects everybody, joins the threads and flushes the device. A second
    /// call does nothing.
    StopReport Stop();

  protected:
    /// Serves a client from its first byte to its last. Runs in the connection's own thread.
    virtual void Serve(Connection& connection) = 0;

    [[nodiscard]] BlockDevice& Device() const { return device_; }
    [[nodiscard]] const ServerLimits& Limits() const { return limits_; }
    [[nodiscard]] const std::atomic<ServerPhase>& Phase() const { return phase_; }

    /// Leaves a trace of a client that was not let in; of many, one in a second.
    void TellRefusal(const char* why);

  private:
    friend class Connection;

    using Slot = std::unique_ptr<Connection>;

    static void RunAcceptor(void* server);
    void AcceptConnections();
    void Admit(Socket client);
    [[nodiscard]] std::size_t CountHandshakes(std::uint32_t peer) const;
    [[nodiscard]] Slot* FindRoom();
    void EndConnections();

    // For connections, from their own threads.
    [[nodiscard]] bool Attach(Connection& connection);
    void Detach(Connection& connection);
    void Finish(Connection& connection);

    BlockDevice& device_;
    std::array<char, 32> label_{};
    const ServerLimits limits_;
    Listener listener_;
    std::uint16_t port_ = 0; // the listener forgets it while connections may still ask
    Thread acceptor_;
    mutable Lock lock_;
    Condition finished_;
    std::array<Slot, kMaxConnections> connections_; // changed by the acceptor, or after its end
    std::uint64_t admitted_ = 0;
    unsigned running_ = 0; // connections that have not finished
    unsigned cutOff_ = 0;  // clients that a stop has cut off
    std::atomic<unsigned> attached_ = 0;
    std::atomic<ServerPhase> phase_{};
    std::atomic<std::uint64_t> nextTrace_ = 0; // milliseconds of the monotonic clock
};

} // namespace quilla
