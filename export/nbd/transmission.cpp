// Requests in the order of their arrival: a row per command, payloads in pieces, replies gathered.

#include "export/nbd/transmission.h"

#include "platform/disk_codes.h"

#include <algorithm>

namespace quilla::nbd {

namespace {

/// A payload is written as it arrives, in pieces of at least this size.
constexpr std::uint32_t kWritePiece = 128U << 10;

/// The longest piece of a WRITE_ZEROES: between pieces others get their turn.
constexpr std::uint64_t kZeroPiece = 1U << 20;

/// Gathered replies of this size are worth a send of their own.
constexpr std::size_t kSendSize = 64U << 10;

SimpleReply MakeReply(const Request& request, Error error) {
    return {.magic = kSimpleReplyMagic, .error = static_cast<std::uint32_t>(error), .cookie = request.cookie};
}

} // namespace

/// One row per command: the flags it takes, the most it moves in one request, and the error for a range
/// outside the export; that of what writes is NoSpace.
struct Transmission::CommandEntry {
    Command command;
    std::uint16_t flags;
    std::uint32_t maximumLength;
    Error outside;
    Outcome (Transmission::*serve)(const Request&, Error);
};

constexpr std::uint32_t kAnyLength = ~std::uint32_t{0};

const Transmission::CommandEntry Transmission::kCommands[] = {
    {Command::Read, kForceUnitAccess, kMaximumPayload, Error::Invalid, &Transmission::ServeRead},
    {Command::Write, kForceUnitAccess, kMaximumPayload, Error::NoSpace, &Transmission::ServeWrite},
    {Command::WriteZeroes, kForceUnitAccess | kNoHole, kAnyLength, Error::NoSpace,
     &Transmission::ServeWriteZeroes},
    {Command::Flush, kForceUnitAccess, 0, Error::Invalid, &Transmission::ServeFlush},
    {Command::Disconnect, 0, kAnyLength, Error::None, &Transmission::ServeDisconnect},
};

bool Transmission::Run() {
    Outcome outcome = Outcome::Continue;
    while (outcome == Outcome::Continue) {
        const bool isStopping = phase_.load(std::memory_order_relaxed) != ServerPhase::Serving;
        if (isStopping && reader_.Available() < sizeof(Request))
            break;
        outcome = Require(sizeof(Request)) ? ServeRequest() : Outcome::Close;
        if (outcome == Outcome::Continue && replies_.Gathered() >= kSendSize && !replies_.Send())
            outcome = Outcome::Close;
    }
    static_cast<void>(replies_.Send());
    return outcome == Outcome::Goodbye;
}

/// Makes so many bytes available. Before it waits for the client, the client gets what it may be waiting for.
bool Transmission::Require(std::size_t count) {
    if (reader_.Available() >= count)
        return true;
    const bool isServing = phase_.load(std::memory_order_relaxed) == ServerPhase::Serving;
    return replies_.Send() && reader_.Require(count, isServing ? ReadAhead::Yes : ReadAhead::No);
}

Transmission::Outcome Transmission::ServeRequest() {
    const auto request = reader_.TakeStructure<Request>();
    if (request.magic != kRequestMagic)
        return Outcome::Close;
    const CommandEntry* const entry = FindCommand(request.command);
    const Error error = Validate(request, entry);
    return entry != nullptr ? (this->*entry->serve)(request, error) : Reply(request, error);
}

const Transmission::CommandEntry* Transmission::FindCommand(std::uint16_t command) {
    for (const CommandEntry& entry : kCommands)
        if (static_cast<std::uint16_t>(entry.command) == command)
            return &entry;
    return nullptr;
}

Error Transmission::Validate(const Request& request, const CommandEntry* entry) const {
    if (entry == nullptr || (request.flags & ~entry->flags) != 0 || request.length > entry->maximumLength)
        return Error::Invalid;
    if (isReadOnly_ && entry->outside == Error::NoSpace)
        return Error::NotPermitted;
    const std::uint64_t size = device_.Size();
    if (request.offset > size || request.length > size - request.offset)
        return entry->outside;
    return Error::None;
}

Transmission::Outcome Transmission::ServeRead(const Request& request, Error error) {
    const std::size_t length = request.length;
    if (error != Error::None || length == 0)
        return Reply(request, error);
    const std::size_t first = std::min(length, replies_.Capacity() - sizeof(SimpleReply));
    const std::span<std::byte> room = replies_.Reserve(sizeof(SimpleReply) + first);
    if (room.empty())
        return Outcome::Close;
    if (!device_.Read(request.offset, room.last(first)))
        return Reply(request, Error::Io);
    const SimpleReply reply = MakeReply(request, Error::None);
    std::memcpy(room.data(), &reply, sizeof(reply));
    replies_.Commit(room.size());
    return ReadPieces(request.offset + first, length - first) ? Outcome::Continue : Outcome::Close;
}

/// The rest of a read that is larger than the reply buffer. Its header is on the way already, so an error can
/// only be told by closing the connection.
bool Transmission::ReadPieces(std::uint64_t offset, std::size_t length) {
    while (length > 0) {
        const std::span<std::byte> room = replies_.Reserve(std::min(length, replies_.Capacity()));
        if (room.empty() || !device_.Read(offset, room))
            return false;
        replies_.Commit(room.size());
        offset += room.size();
        length -= room.size();
    }
    return true;
}

/// Writes the payload as it arrives. A payload that cannot be written is received all the same.
Transmission::Outcome Transmission::ServeWrite(const Request& request, Error error) {
    std::uint64_t offset = request.offset;
    std::size_t remaining = request.length;
    while (remaining > 0) {
        // Pieces end where a sector ends, so that none is written twice.
        const std::size_t wanted = std::min<std::size_t>(remaining, kWritePiece - offset % kSectorSize);
        if (!Require(wanted))
            return Outcome::Close;
        std::size_t piece = std::min(remaining, reader_.Available());
        if (piece < remaining)
            piece -= (offset + piece) % kSectorSize;
        const std::span<std::byte> payload = reader_.Take(piece);
        if (error == Error::None && !device_.Write(offset, payload))
            error = Error::Io;
        offset += piece;
        remaining -= piece;
    }
    return Reply(request, FlushIfForced(request, error));
}

Transmission::Outcome Transmission::ServeWriteZeroes(const Request& request, Error error) {
    if (error == Error::None)
        error = WriteZeroPieces(request.offset, request.length);
    return Reply(request, FlushIfForced(request, error));
}

Error Transmission::WriteZeroPieces(std::uint64_t offset, std::uint64_t length) {
    while (length > 0) {
        if (phase_.load(std::memory_order_relaxed) == ServerPhase::Aborting)
            return Error::Shutdown;
        const std::uint64_t piece = std::min(length, kZeroPiece - offset % kSectorSize);
        if (!device_.WriteZeroes(offset, piece))
            return Error::Io;
        offset += piece;
        length -= piece;
    }
    return Error::None;
}

Error Transmission::FlushIfForced(const Request& request, Error error) {
    if (error != Error::None || (request.flags & kForceUnitAccess) == 0)
        return error;
    return device_.Flush() ? Error::None : Error::Io;
}

Transmission::Outcome Transmission::ServeFlush(const Request& request, Error error) {
    if (error == Error::None && !device_.Flush())
        error = Error::Io;
    return Reply(request, error);
}

Transmission::Outcome Transmission::ServeDisconnect(const Request& /*request*/, Error /*error*/) {
    return Outcome::Goodbye;
}

Transmission::Outcome Transmission::Reply(const Request& request, Error error) {
    return replies_.Append(MakeReply(request, error)) ? Outcome::Continue : Outcome::Close;
}

} // namespace quilla::nbd
