#include "export/fuse/rings.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstdio>
#include <ctime>
#include <new>
#include <string_view>
#include <sys/uio.h>
#include <utility>

namespace quilla::fuse {

namespace {

/// Requests that can be under way, if there are fewer queues.
constexpr std::size_t kPlaces = 16;
/// More would take too much memory.
constexpr unsigned kMaxQueues = 64;
/// Nanoseconds beyond which an answer is not quick: some times what it costs to wake another thread.
constexpr std::int64_t kLong = 40'000;

/// What a completion tells beside the index of a place.
constexpr std::uint64_t kPassed = 1U << 30; ///< by the other side
constexpr std::uint64_t kEnd = 1U << 31;    ///< the other side has ended

/// The kernel waits until each of its queues has a place. 0 if their number cannot be learned.
unsigned CountQueues() {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(
        std::fopen("/sys/devices/system/cpu/possible", "re"), std::fclose);
    std::array<char, 32> line{};
    if (!file || std::fgets(line.data(), static_cast<int>(line.size()), file.get()) == nullptr)
        return 0;
    const std::string_view range(line.data()); // "0", "0-7"; one with gaps is not for us
    const char* const last = range.data() + (range.starts_with("0-") ? 2 : 0);
    unsigned number = 0;
    const auto [end, fault] = std::from_chars(last, range.data() + range.size(), number);
    return fault == std::errc{} && *end == '\n' ? number + 1 : 0;
}

std::int64_t Now() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * std::int64_t{1'000'000'000} + now.tv_nsec;
}

} // namespace

/// Belongs to the ring that answered it last: a request that is passed on takes its place along.
struct Server::Rings::Place {
    [[nodiscard]] fuse_in_header Header() const {
        fuse_in_header header;
        std::memcpy(&header, record.header.data(), sizeof(header));
        return header;
    }

    RingRecord record{};
    std::uint16_t queue = 0;
    std::array<iovec, 2> parts{};
    Buffer buffer;
};

class Server::Rings::RingReply final : public Reply {
  public:
    explicit RingReply(Place& place)
        : Reply(place.Header(), Record(place), place.buffer.Payload(kMaxTransfer), place.record.payloadSize),
          place_(place) {}

  private:
    /// Names come as a payload.
    static std::span<const std::byte> Record(Place& place) {
        return place.Header().opcode == FUSE_LOOKUP ? place.buffer.Payload(place.record.payloadSize)
                                                    : std::span(place.record.operation);
    }

    void Write(const fuse_out_header& head, std::span<const std::byte> answer) override {
        std::memcpy(place_.record.header.data(), &head, sizeof(head));
        if (answer.data() != payload.data())
            std::ranges::copy(answer, payload.begin());
        place_.record.payloadSize = static_cast<std::uint32_t>(answer.size());
    }

    Place& place_;
};

Server::Rings::Rings(Server& server) : server_(server) {}

/// Each thread writes to the other's ring, so both end before a ring closes.
Server::Rings::~Rings() {
    for (Side& side : sides_)
        side.thread.Join();
}

bool Server::Rings::Prepare() {
    const unsigned queues = CountQueues();
    if (queues == 0 || queues > kMaxQueues)
        return false;
    placeCount_ = queues * std::max<std::size_t>(1, kPlaces / queues);
    for (Side& side : sides_) {
        side.rings = this;
        // Each place needs one submission at a time, the farewell another.
        side.ring.reset(new (std::nothrow) IoRing(static_cast<unsigned>(std::bit_ceil(placeCount_ + 1))));
        if (!side.ring || !side.ring->IsOpen())
            return false;
    }
    placesLeft_ = placeCount_;
    places_.reset(new (std::nothrow) Place[placeCount_]);
    if (!places_)
        return false;
    for (std::size_t index = 0; index < placeCount_; ++index)
        places_[index].queue = static_cast<std::uint16_t>(index % queues);
    isWanted_ = StartThreads();
    if (!isWanted_)
        begun_.count_down();
    return isWanted_;
}

bool Server::Rings::StartThreads() {
    for (Side& side : sides_)
        if (!side.thread.Start(RunSide, &side))
            enabled_.count_down();
    enabled_.wait();
    return std::ranges::all_of(sides_, &Side::isEnabled);
}

void Server::Rings::RunSide(void* side) {
    auto& self = *static_cast<Side*>(side);
    self.isEnabled = self.ring->Enable();
    self.rings->enabled_.count_down();
    self.rings->begun_.wait();
    if (self.rings->isWanted_)
        self.rings->Serve(self);
    // Without an answer the kernel has refused the rings and gone on by the device.
    if (self.cost != 0)
        self.rings->server_.SignalEnd();
}

void Server::Rings::Serve(Side& side) {
    if (IsFirst(side))
        Register(*side.ring);
    for (bool isOn = true; isOn;) {
        side.isFree = true;
        isOn = side.ring->Exchange(1);
        side.isFree = false;
        io_uring_cqe completion;
        while (isOn && side.ring->Take(completion))
            isOn = Take(side, completion);
    }
    side.ring->AddMessage(*Other(side).ring, kEnd);
    static_cast<void>(side.ring->Exchange(0));
}

void Server::Rings::Register(IoRing& ring) {
    for (std::size_t index = 0; index < placeCount_; ++index) {
        Place& place = places_[index];
        place.parts = {{{.iov_base = &place.record, .iov_len = sizeof(place.record)},
                        {.iov_base = place.buffer.Payload(kMaxTransfer).data(), .iov_len = kMaxTransfer}}};
        AddCommand(ring, RingCommand::Register, index);
    }
}

void Server::Rings::AddCommand(IoRing& ring, RingCommand command, std::size_t index) {
    const Place& place = places_[index];
    io_uring_sqe& submission = ring.Add();
    submission.opcode = IORING_OP_URING_CMD;
    submission.fd = server_.descriptor_;
    submission.cmd_op = static_cast<std::uint32_t>(command);
    submission.addr = reinterpret_cast<std::uint64_t>(place.parts.data());
    submission.len = static_cast<std::uint32_t>(place.parts.size());
    submission.user_data = index;
    const RingCommandRecord own{.commit = place.record.commit, .queue = place.queue};
    std::memcpy(submission.cmd, &own, sizeof(own));
}

/// False once the kernel has no place left: the mount has ended, or rings were refused.
bool Server::Rings::Take(Side& side, const io_uring_cqe& completion) {
    const bool isPassed = (completion.user_data & kPassed) != 0;
    if ((completion.user_data & kEnd) != 0)
        return false;
    if (completion.res < 0 && !isPassed)
        return --placesLeft_ != 0;
    const std::size_t index = completion.user_data & ~kPassed;
    if (isPassed || !IsForOther(side, places_[index]))
        return Answer(side, index);
    side.ring->AddMessage(*Other(side).ring, index | kPassed);
    return side.ring->Exchange(0);
}

/// What took long is sent at once, the rest with the next exchange.
bool Server::Rings::Answer(Side& side, std::size_t index) {
    const std::int64_t start = Now();
    Place& place = places_[index];
    RingReply reply(place);
    server_.Answer(reply);
    reply.Finish();
    AddCommand(*side.ring, RingCommand::Answer, index);
    const std::int64_t cost = Now() - start;
    side.takesLong = std::min(cost, std::exchange(side.cost, cost)) > kLong;
    return !side.takesLong || side.ring->Exchange(0);
}

bool Server::Rings::IsForOther(const Side& side, const Place& place) {
    const bool isFlush = place.Header().opcode == FUSE_FSYNC;
    if (!isFlush && !side.takesLong)
        return !IsFirst(side);
    const bool isWorth = isFlush ? IsFirst(side) : side.ring->HasMore();
    return isWorth && Other(side).isFree.exchange(false);
}

} // namespace quilla::fuse
