#pragma once

#include "export/nbd/server.h"
#include "platform/socket.h"
#include "platform/thread.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace quilla::nbd {

/// One client of a server: its socket, its thread and its buffers. The server's lock protects the state; the
/// socket is closed by the thread, under that lock, when everything is over.
class Connection {
  public:
    enum class State : std::uint8_t {
        Handshake,
        /// Inside the export.
        Attached,
        /// To end without being attached.
        Dismissed,
        Finished,
    };

    Connection(Server& server, Socket client, std::uint64_t arrival)
        : number(arrival), server_(server), socket_(std::move(client)) {}

    /// Starts the thread; false if the system refuses.
    [[nodiscard]] bool Start() { return thread_.Start(RunThread, this); }

    /// Orders, given under the server's lock while the connection has not finished.
    void Dismiss();
    void StopReceiving() { socket_.StopReceiving(); }
    void CutOff() { socket_.Shutdown(); }

    void Close() { socket_.Close(); }

    State state = State::Handshake;
    bool saidGoodbye = false;
    /// Connections are numbered in the order of their arrival.
    const std::uint64_t number;

  private:
    static void RunThread(void* connection);
    void Run();
    void Serve(std::span<std::byte> received, std::span<std::byte> replies);

    Server& server_;
    Socket socket_;
    Thread thread_;
};

} // namespace quilla::nbd
