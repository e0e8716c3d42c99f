#pragma once

#include "export/range_lock.h"
#include "export/stop_report.h"
#include "platform/block_device.h"
#include "platform/socket.h"
#include "platform/thread.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <string_view>

namespace quilla::nbd {

class Connection;
struct Export;
enum class ServerPhase : std::uint8_t;

/// Limits of a server; the defaults suit a mounted volume.
struct Limits {
    /// Time a client has for its whole handshake.
    std::uint32_t handshakeMilliseconds = 10'000;
    /// Time that Stop gives clients to take the replies to what is in flight.
    std::uint32_t stopMilliseconds = 3'000;
};

/// Exports one block device over the Network Block Device protocol (fixed newstyle), on loopback TCP at a
/// port chosen by the system. The export's name is a capability: no other name is served and none is ever
/// listed. Each connection has a thread of its own; a malformed or stalled peer costs only its own
/// connection.
class Server {
  public:
    /// Connections at a time. When all are taken, the oldest one still in its handshake makes room for a
    /// newcomer; with none in its handshake the newcomer is closed.
    static constexpr std::size_t kMaxConnections = 16;

    /// The device must outlive the server. The name has 1 to kMaxNameLength bytes of ASCII.
    static constexpr std::size_t kMaxNameLength = 64;
    Server(BlockDevice& device, std::string_view exportName, Limits limits = {});
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    /// Starts to listen (port 0 = the system chooses) and to serve; false if the system refuses.
    [[nodiscard]] bool Start(std::uint16_t port = 0);

    /// The port clients connect to; 0 before Start.
    [[nodiscard]] std::uint16_t Port() const { return listener_.Port(); }

    /// Clients that have finished their handshake and are attached at present.
    [[nodiscard]] unsigned ConnectedClients() const { return attached_.load(); }

    /// Completes what is in flight, disconnects everybody, joins the threads and flushes the device. A second
    /// call does nothing.
    StopReport Stop();

  private:
    friend class Connection;

    using Slot = std::unique_ptr<Connection>;

    static void RunAcceptor(void* server);
    void AcceptConnections();
    void Admit(Socket client);
    [[nodiscard]] Slot* FindRoom();
    void EndConnections();

    // For connections, from their own threads.
    [[nodiscard]] Export TheExport() const;
    [[nodiscard]] bool Attach(Connection& connection);
    void Finish(Connection& connection);
    void TellRefusal(const char* why) const;

    BlockDevice& device_;
    RangeLock ranges_;
    std::array<char, kMaxNameLength> name_{};
    std::size_t nameLength_;
    const Limits limits_;
    Listener listener_;
    Thread acceptor_;
    Lock lock_;
    Condition finished_;
    std::array<Slot, kMaxConnections> connections_; // changed by the acceptor, or after its end
    std::uint64_t admitted_ = 0;
    unsigned running_ = 0; // connections that have not finished
    unsigned cutOff_ = 0;  // clients that a stop has cut off
    std::atomic<unsigned> attached_ = 0;
    std::atomic<ServerPhase> phase_{};
};

} // namespace quilla::nbd
