#include "export/nbd/server.h"

#include "export/nbd/connection.h"
#include "export/nbd/handshake.h"
#include "export/nbd/transmission.h"
#include "platform/clock.h"
#include "platform/trace.h"
#include "platform/wipe.h"

#include <algorithm>
#include <cstdio>
#include <new>
#include <utility>

namespace quilla::nbd {

using State = Connection::State;

/// Pause after the system refused a connection for lack of resources.
constexpr std::uint32_t kRetryMilliseconds = 50;

static_assert(Server::kMaxConnections <= RangeLock::kMaxHolders, "each connection may hold a range");

Server::Server(BlockDevice& device, std::string_view exportName, Limits limits)
    : device_(device), nameLength_(std::min(exportName.size(), kMaxNameLength)), limits_(limits) {
    std::copy_n(exportName.begin(), nameLength_, name_.begin());
}

Server::~Server() {
    Stop();
    Wipe(name_);
}

bool Server::Start(std::uint16_t port) {
    if (listener_.IsOpen() || !listener_.Open(port))
        return false;
    phase_ = ServerPhase::Serving;
    if (!acceptor_.Start(RunAcceptor, this))
        listener_.Close();
    return listener_.IsOpen();
}

void Server::RunAcceptor(void* server) {
    static_cast<Server*>(server)->AcceptConnections();
}

void Server::AcceptConnections() {
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

void Server::Admit(Socket client) {
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

/// A free slot, or one that is made free: its connection has finished, or it is the oldest of those that have
/// not shown yet that they know the export's name.
Server::Slot* Server::FindRoom() {
    Slot* room = nullptr;
    bool isDismissal = false;
    {
        const LockGuard guard(lock_);
        const auto precedence = [](const Slot& slot) {
            return !slot || slot->state == State::Finished ? 0 : slot->number;
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
        TellRefusal("it made room for another before it gave the export's name");
    if (room != nullptr)
        room->reset(); // joins its thread
    return room;
}

Export Server::TheExport() const {
    return {.name = {name_.data(), nameLength_}, .size = device_.Size()};
}

/// Lets a connection that has passed its handshake in, unless it has been dismissed meanwhile.
bool Server::Attach(Connection& connection) {
    const LockGuard guard(lock_);
    if (connection.state != State::Handshake)
        return false;
    connection.state = State::Attached;
    ++attached_;
    return true;
}

void Server::Finish(Connection& connection) {
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

/// Leaves a trace of a client that was not let in, without the secret part of the export's name.
void Server::TellRefusal(const char* why) const {
    const std::string_view name = TheExport().name;
    const std::size_t dash = name.find('-');
    const int open = dash == std::string_view::npos ? 0 : static_cast<int>(dash);
    std::array<char, 128> line;
    std::snprintf(line.data(), line.size(), "Quilla Tarn: %.*s refused a client: %s", open, name.data(), why);
    Trace(line.data());
}

StopReport Server::Stop() {
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
void Server::EndConnections() {
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

} // namespace quilla::nbd
