#pragma once

#include "export/stream_server.h"
#include "platform/socket.h"
#include "platform/thread.h"

#include <cstdint>
#include <utility>

namespace quilla {

/// One client of a server: its socket and its thread. The server's lock protects the state; the socket is
/// closed by the thread, under that lock, when everything is over.
class Connection {
  public:
    enum class State : std::uint8_t {
        Handshake,
        /// Knows the secret and uses the device.
        Attached,
        /// To end without being attached.
        Dismissed,
        Finished,
    };

    Connection(StreamServer& server, Socket client, std::uint64_t arrival)
        : number(arrival), server_(server), peer_(client.Peer()), socket_(std::move(client)) {}

    /// Starts the thread; false if the system refuses.
    [[nodiscard]] bool Start() { return thread_.Start(RunThread, this); }

    /// Orders, given under the server's lock while the connection has not finished.
    void Dismiss();
    void StopReceiving() { socket_.StopReceiving(); }
    void CutOff() { socket_.Shutdown(); }

    void Close() { socket_.Close(); }

    /// Where the client comes from.
    [[nodiscard]] std::uint32_t Peer() const { return peer_; }

    /// For the protocol, from the connection's own thread.
    [[nodiscard]] Socket& Stream() { return socket_; }

    /// Lets a client in that has passed its handshake; false if it has been dismissed meanwhile.
    [[nodiscard]] bool Attach() { return server_.Attach(*this); }

    /// Ends the use of the device by a client that has said good-bye and whose last reply is still to be
    /// sent.
    void Detach() { server_.Detach(*this); }

    State state = State::Handshake;
    /// Set by the protocol when the client has taken its leave.
    bool saidGoodbye = false;
    /// Connections are numbered in the order of their arrival.
    const std::uint64_t number;

  private:
    static void RunThread(void* connection);

    StreamServer& server_;
    const std::uint32_t peer_;
    Socket socket_;
    Thread thread_;
};

} // namespace quilla
