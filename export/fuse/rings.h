#pragma once

#include "export/fuse/io_ring.h"
#include "export/fuse/reply.h"
#include "export/fuse/ring_records.h"
#include "export/fuse/server.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <latch>
#include <memory>

namespace quilla::fuse {

/// Takes requests by the kernel's rings, where it offers them (since Linux 6.14; root sets
/// fuse.enable_uring): one call answers what was taken and takes what has come since, where the device asks
/// for two calls for every request. There are two threads with a ring each. The first serves what is quick,
/// many at a time; what takes long (long transfers, a slow disk, a flush) goes to whichever is free.
class Server::Rings {
  public:
    explicit Rings(Server& server);
    ~Rings();
    Rings(const Rings&) = delete;
    Rings& operator=(const Rings&) = delete;

    /// Makes rings, memory and threads; false if the system does not give them.
    [[nodiscard]] bool Prepare();

    /// Takes requests from now on; the kernel has been told that it is to fill the rings.
    void Begin() { begun_.count_down(); }

  private:
    struct Place;
    class RingReply;
    struct Side {
        Rings* rings = nullptr;
        std::unique_ptr<IoRing> ring;
        Thread thread;
        bool isEnabled = false;
        std::atomic<bool> isFree = false;
        bool takesLong = false; ///< its last two answers did; one may have been held up by other programs
        std::int64_t cost = 0;  ///< nanoseconds that its last answer took; 0 = there was none
    };

    [[nodiscard]] bool StartThreads();
    static void RunSide(void* side);
    void Serve(Side& side);
    void Register(IoRing& ring);
    void AddCommand(IoRing& ring, RingCommand command, std::size_t index);
    [[nodiscard]] bool Take(Side& side, const io_uring_cqe& completion);
    [[nodiscard]] bool Answer(Side& side, std::size_t index);
    [[nodiscard]] bool IsForOther(const Side& side, const Place& place);
    [[nodiscard]] bool IsFirst(const Side& side) const { return &side == sides_.data(); }
    [[nodiscard]] Side& Other(const Side& side) { return sides_[IsFirst(side) ? 1 : 0]; }

    Server& server_;
    std::unique_ptr<Place[]> places_;
    std::size_t placeCount_ = 0;
    std::atomic<std::size_t> placesLeft_ = 0; ///< those that the kernel has not given back
    bool isWanted_ = false;
    std::latch enabled_{2};
    std::latch begun_{1};
    std::array<Side, 2> sides_; // their rings close before the places end, which the kernel fills
};

} // namespace quilla::fuse
