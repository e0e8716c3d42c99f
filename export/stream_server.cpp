// Admission of clients, and the orderly end.

#include "export/stream_server.h"

#include "export/connection.h"
#include "platform/clock.h"
#include "platform/trace.h"

#include <algorithm>
#include <cstdio>
#include <new>
#include <utility>

namespace quilla {

using State = Connection::State;

/// Pause after the system refused a connection for lack of resources.
constexpr std::uint32_t kRetryMilliseconds = 50;

/// Milliseconds between two traces of refused clients.
constexpr std::uint32_t kTracePause = 1'000;

StreamServer::StreamServer(BlockDevice& device, std::string_view label, ServerLimits limits)
    : device_(device), limits_(limits) {
    label.copy(label_.data(), label_.size() - 1);
}

StreamServer::~StreamServer() = default;

bool StreamServer::Start(std::uint16_t port) {
    Listener listener;
    return listener.Open(port) && Start(std::move(listener));
}

bool StreamServer::Start(Listener listener) {
    if (listener_.IsOpen() || !listener.IsOpen())
        return false;
    listener_ = std::move(listener);
    port_ = listener_.Port();
    phase_ = ServerPhase::Serving;
    if (!acceptor_.Start(RunAcceptor, this))
        listener_.Close();
    return listener_.IsOpen();
}

void StreamServer::RunAcceptor(void* server) {
    static_cast<StreamServer*>(server)->AcceptConnections();
}

void StreamServer::AcceptConnections() {
    while (phase_ == ServerPhase::Serving) {
        Socket client = listener_.Accept();
        if (client.IsOpen()) {
            Admit(std::move(client));
        } else if (phase_ == ServerPhase::Serving) {
            const LockGuard guard(lock_);
            finished_.WaitFor(lock_, kRetryMilliseconds);
        }
    }
}

void StreamServer::Admit(Socket client) {
    Slot* const room = FindRoom();
    if (room == nullptr) {
        TellRefusal("all connections are taken");
        return;
    }
    room->reset(new (std::nothrow) Connection(*this, std::move(client), ++admitted_));
    if (!*room)
        return;
    {
        const LockGuard guard(lock_);
        ++running_;
    }
    if (!(*room)->Start())
        Finish(**room);
}

/// Connections from an address that have not shown yet that they may use the device.
std::size_t StreamServer::CountHandshakes(std::uint32_t peer) const {
    return static_cast<std::size_t>(std::ranges::count_if(connections_, [peer](const Slot& slot) {
        return slot && slot->state == State::Handshake && slot->Peer() == peer;
    }));
}

/// A free slot, or one that is made free: its connection has finished, or has to go.
StreamServer::Slot* StreamServer::FindRoom() {
    Slot* room = nullptr;
    bool isDismissal = false;
    {
        const LockGuard guard(lock_);
        const auto precedence = [this](const Slot& slot) {
            return !slot || slot->state == State::Finished
                       ? std::pair<std::size_t, std::uint64_t>()
                       : std::pair(1 + kMaxConnections - CountHandshakes(slot->Peer()), slot->number);
        };
        for (Slot& slot : connections_)
            if ((!slot || slot->state != State::Attached) &&
                (room == nullptr || precedence(slot) < precedence(*room)))
                room = &slot;
        isDismissal = room != nullptr && *room && (*room)->state == State::Handshake;
        if (isDismissal)
            (*room)->Dismiss();
    }
    if (isDismissal)
        TellRefusal("it made room for another before it showed that it may");
    if (room != nullptr)
        room->reset(); // joins its thread
    return room;
}

/// Lets a connection that has passed its handshake in, unless it has been dismissed meanwhile.
bool StreamServer::Attach(Connection& connection) {
    const LockGuard guard(lock_);
    if (connection.state != State::Handshake)
        return false;
    connection.state = State::Attached;
    ++attached_;
    return true;
}

void StreamServer::Detach(Connection& connection) {
    const LockGuard guard(lock_);
    if (connection.state != State::Attached)
        return;
    connection.state = State::Handshake;
    --attached_;
}

std::size_t StreamServer::AttachedPeers(std::span<std::uint32_t> peers) const {
    const LockGuard guard(lock_);
    std::size_t count = 0;
    for (const Slot& slot : connections_)
        if (slot && slot->state == State::Attached && count < peers.size())
            peers[count++] = slot->Peer();
    return count;
}

void StreamServer::Finish(Connection& connection) {
    const LockGuard guard(lock_);
    if (connection.state == State::Attached) {
        --attached_;
        if (phase_ != ServerPhase::Serving && !connection.saidGoodbye)
            ++cutOff_;
    }
    connection.state = State::Finished;
    connection.Close();
    --running_;
    finished_.WakeAll();
}

void StreamServer::TellRefusal(const char* why) {
    const std::uint64_t now = MonotonicMilliseconds();
    std::uint64_t next = nextTrace_;
    if (now < next || !nextTrace_.compare_exchange_strong(next, now + kTracePause))
        return;
    std::array<char, 128> line;
    std::snprintf(line.data(), line.size(), "Quilla Tarn: %s refused a client: %s", label_.data(), why);
    Trace(line.data());
}

StopReport StreamServer::Stop() {
    if (!listener_.IsOpen())
        return {};
    phase_ = ServerPhase::Stopping;
    listener_.Stop();
    acceptor_.Join();
    listener_.Close();
    EndConnections();
    return {.clientsCutOff = std::exchange(cutOff_, 0U), .flushed = device_.Flush()};
}

/// Lets every connection complete what it has received, within the time given, and joins all of them.
void StreamServer::EndConnections() {
    const std::uint64_t deadline = MonotonicMilliseconds() + limits_.stopMilliseconds;
    {
        const LockGuard guard(lock_);
        for (const Slot& slot : connections_) {
            if (slot && slot->state == State::Handshake)
                slot->Dismiss();
            else if (slot && slot->state == State::Attached)
                slot->StopReceiving();
        }
        for (std::uint64_t now = MonotonicMilliseconds(); running_ > 0 && now < deadline;
             now = MonotonicMilliseconds())
            finished_.WaitFor(lock_, static_cast<std::uint32_t>(deadline - now));
        phase_ = ServerPhase::Aborting;
        for (const Slot& slot : connections_)
            if (slot && slot->state == State::Attached)
                slot->CutOff();
    }
    for (Slot& slot : connections_)
        slot.reset();
}

} // namespace quilla
