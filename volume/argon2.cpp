// Argon2id, RFC 9106, version 0x13. Names follow its section 3.2: lanes are rows of blocks, each cut into
// four slices; where a lane meets a slice is a segment, and segments of one slice can be filled side by side.

#include "volume/argon2.h"

#include "platform/byte_order.h"
#include "platform/locked_memory.h"
#include "platform/thread.h"
#include "platform/wipe.h"
#include "volume/argon2_block.h"
#include "volume/blake2b.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <initializer_list>

namespace quilla {

namespace {

constexpr std::uint32_t kVersion = 0x13;
constexpr std::uint32_t kTypeArgon2id = 2;
constexpr std::uint32_t kSlices = 4;
constexpr std::uint32_t kWordsInBlock = 128;
constexpr unsigned kMaxThreads = 16;

using Seed = std::array<std::byte, kBlake2bLargestDigest>;

void HashNumber(Blake2bState& state, std::uint32_t number) {
    std::byte bytes[sizeof(number)];
    StoreLittle(bytes, number);
    Blake2bUpdate(state, bytes);
}

void HashString(Blake2bState& state, std::span<const std::byte> string) {
    HashNumber(state, static_cast<std::uint32_t>(string.size()));
    Blake2bUpdate(state, string);
}

/// H_0 of section 3.2.
void MakeSeed(Seed& seed, std::size_t tagSize, const Argon2Input& input, const Argon2Cost& cost) {
    Secret<Blake2bState> state;
    Blake2bInit(*state, seed.size());
    for (const std::uint32_t number :
         {cost.lanes, static_cast<std::uint32_t>(tagSize), cost.memory, cost.passes, kVersion, kTypeArgon2id})
        HashNumber(*state, number);
    for (const auto& string : {input.password, input.salt, input.secret, input.associated})
        HashString(*state, string);
    Blake2bFinal(*state, seed);
}

/// H' of section 3.3: a hash of any length. The message is the given parts, one after the other.
void HashLong(std::span<std::byte> out, std::initializer_list<std::span<const std::byte>> parts) {
    Secret<Blake2bState> state;
    Secret<Seed> link;
    Blake2bInit(*state, std::min(out.size(), link->size()));
    HashNumber(*state, static_cast<std::uint32_t>(out.size()));
    for (const auto& part : parts)
        Blake2bUpdate(*state, part);
    while (out.size() > link->size()) { // all but the last digest give their first half
        Blake2bFinal(*state, *link);
        const std::size_t half = link->size() / 2;
        std::memcpy(out.data(), link->data(), half);
        out = out.subspan(half);
        Blake2bInit(*state, std::min(out.size(), link->size()));
        Blake2bUpdate(*state, *link);
    }
    Blake2bFinal(*state, out);
}

/// The blocks, in memory that is wiped before it is given back.
class BlockMemory {
  public:
    explicit BlockMemory(std::uint64_t count) : size_(count * sizeof(Argon2Block)) {
        if (size_ <= SIZE_MAX)
            blocks_ = static_cast<Argon2Block*>(AllocateLockedMemory(static_cast<std::size_t>(size_)));
    }
    ~BlockMemory() { ReleaseLockedMemory(blocks_, static_cast<std::size_t>(size_)); }
    BlockMemory(const BlockMemory&) = delete;
    BlockMemory& operator=(const BlockMemory&) = delete;

    [[nodiscard]] Argon2Block* Get() const { return blocks_; }

  private:
    std::uint64_t size_;
    Argon2Block* blocks_ = nullptr;
};

/// Pseudo-random numbers that depend on nothing secret: a counter, compressed twice (section 3.4.1.1).
class AddressGenerator {
  public:
    AddressGenerator(const Argon2Kernel& kernel, std::initializer_list<std::uint64_t> place)
        : kernel_(kernel) {
        std::ranges::copy(place, input_.words);
    }

    void NextBlock() {
        constexpr std::size_t kCounter = 6;
        static constexpr Argon2Block kZero{};
        ++input_.words[kCounter];
        kernel_.fill(output_, kZero, input_, false);
        kernel_.fill(output_, kZero, output_, false);
    }
    [[nodiscard]] std::uint64_t Number(std::uint32_t index) const {
        return output_.words[index % kWordsInBlock];
    }

  private:
    const Argon2Kernel& kernel_;
    Argon2Block input_{};
    Argon2Block output_{};
};

/// Fills the memory. All threads take segments of a slice as they come; the next slice begins when the last
/// one is complete.
class Filler {
  public:
    Filler(Argon2Block* blocks, const Argon2Cost& cost, const Argon2Kernel& kernel, Argon2Watch* watch)
        : blocks_(blocks), cost_(cost), kernel_(kernel), watch_(watch),
          segmentSize_(cost.memory / (kSlices * cost.lanes)), laneSize_(kSlices * segmentSize_) {}

    /// What section 3.2 calls B[i][0] and B[i][1].
    void PlaceFirstBlocks(const Seed& seed) {
        for (std::uint32_t lane = 0; lane < cost_.lanes; ++lane)
            for (std::uint32_t column = 0; column < 2; ++column) {
                std::byte place[8];
                StoreLittle(place, column);
                StoreLittle(place + 4, lane);
                Secret<std::array<std::byte, sizeof(Argon2Block)>> bytes;
                HashLong(*bytes, {seed, place});
                for (std::size_t i = 0; i < kWordsInBlock; ++i)
                    At(lane, column).words[i] = LoadLittle<std::uint64_t>(&(*bytes)[8 * i]);
            }
    }

    /// False if it was stopped.
    bool Fill() {
        Thread helpers[kMaxThreads - 1];
        const unsigned wanted = std::min({cost_.lanes, CountProcessors(), kMaxThreads}) - 1;
        for (unsigned i = 0; i < wanted; ++i)
            static_cast<void>(helpers[i].Start(RunHelper, this)); // without it the others do more
        Work();
        for (Thread& helper : helpers)
            helper.Join();
        return !isStopped_;
    }

    void MakeTag(std::span<std::byte> tag) const {
        Secret<Argon2Block> sum;
        for (std::uint32_t lane = 0; lane < cost_.lanes; ++lane)
            for (std::size_t i = 0; i < kWordsInBlock; ++i)
                sum->words[i] ^= At(lane, laneSize_ - 1).words[i];
        for (std::uint64_t& word : sum->words)
            StoreLittle(&word, word);
        HashLong(tag, {std::as_bytes(std::span(sum->words))});
    }

  private:
    struct Segment {
        std::uint32_t pass;
        std::uint32_t slice;
        std::uint32_t lane;
    };

    static void RunHelper(void* filler) { static_cast<Filler*>(filler)->Work(); }

    void Work() {
        const LockGuard guard(lock_);
        const std::uint32_t steps = cost_.passes * kSlices;
        while (step_ < steps && !isStopped_) {
            if (begun_ == cost_.lanes) {
                changed_.Wait(lock_);
                continue;
            }
            const Segment segment = {.pass = step_ / kSlices, .slice = step_ % kSlices, .lane = begun_++};
            lock_.Release();
            FillSegment(segment);
            lock_.Acquire();
            if (++filled_ == cost_.lanes)
                EndStep(steps);
        }
        Argon2Block scratch{}; // the kernel's stack holds pieces of blocks: let it hold zeros
        kernel_.fill(scratch, scratch, scratch, false);
    }

    void EndStep(std::uint32_t steps) {
        ++step_;
        begun_ = filled_ = 0;
        if (watch_ != nullptr) {
            watch_->percentDone = 100 * step_ / steps;
            isStopped_ = watch_->stop;
        }
        changed_.WakeAll();
    }

    [[nodiscard]] Argon2Block& At(std::uint32_t lane, std::uint32_t column) const {
        return blocks_[std::size_t{lane} * laneSize_ + column];
    }

    void FillSegment(const Segment& segment) {
        const bool isIndependent = segment.pass == 0 && segment.slice < kSlices / 2;
        AddressGenerator addresses(kernel_,
                                   {segment.pass, segment.lane, segment.slice,
                                    std::uint64_t{laneSize_} * cost_.lanes, cost_.passes, kTypeArgon2id});
        const std::uint32_t first = segment.pass == 0 && segment.slice == 0 ? 2 : 0;
        for (std::uint32_t i = first; i < segmentSize_; ++i) {
            const std::uint32_t column = segment.slice * segmentSize_ + i;
            const Argon2Block& previous = At(segment.lane, (column == 0 ? laneSize_ : column) - 1);
            if (isIndependent && (i == first || i % kWordsInBlock == 0))
                addresses.NextBlock();
            const std::uint64_t random = isIndependent ? addresses.Number(i) : previous.words[0];
            kernel_.fill(At(segment.lane, column), previous, Reference(segment, i, random), segment.pass > 0);
        }
    }

    /// Maps a number to a block that is complete (section 3.4.2).
    [[nodiscard]] const Argon2Block& Reference(const Segment& segment, std::uint32_t index,
                                               std::uint64_t random) const {
        const bool isFirstSlice = segment.pass == 0 && segment.slice == 0;
        const auto otherLane = static_cast<std::uint32_t>((random >> 32) % cost_.lanes);
        const std::uint32_t lane = isFirstSlice ? segment.lane : otherLane;
        const std::uint32_t before =
            segment.pass == 0 ? segment.slice * segmentSize_ : laneSize_ - segmentSize_;
        // In its own lane a block also refers to its own segment, but never to the one just before it.
        const std::uint32_t area = lane == segment.lane ? before + index - 1 : before - (index == 0 ? 1 : 0);
        const std::uint64_t low = random & 0xFFFFFFFF;
        const auto distance = static_cast<std::uint32_t>(area * (low * low >> 32) >> 32);
        const std::uint32_t start = segment.pass == 0 ? 0 : (segment.slice + 1) * segmentSize_;
        const std::uint64_t column = std::uint64_t{start} + area - 1 - distance;
        return At(lane, static_cast<std::uint32_t>(column % laneSize_));
    }

    Argon2Block* const blocks_;
    const Argon2Cost cost_;
    const Argon2Kernel& kernel_;
    Argon2Watch* const watch_;
    const std::uint32_t segmentSize_; ///< blocks
    const std::uint32_t laneSize_;

    Lock lock_; ///< protects what follows
    Condition changed_;
    std::uint32_t step_ = 0;   ///< slices complete, over all passes
    std::uint32_t begun_ = 0;  ///< lanes of the current slice that a thread has taken
    std::uint32_t filled_ = 0; ///< and filled
    bool isStopped_ = false;
};

const Argon2Kernel& BestKernel() {
    for (const Argon2Kernel* kernel : AllArgon2Kernels())
        if (kernel->isSupported())
            return *kernel;
    return kArgon2Portable;
}

} // namespace

std::span<const Argon2Kernel* const> AllArgon2Kernels() {
    static constexpr const Argon2Kernel* kKernels[] = {
#if defined(__x86_64__)
        &kArgon2Avx512,
        &kArgon2Avx2,
#endif
        &kArgon2Portable,
    };
    return kKernels;
}

Argon2Result Argon2id(std::span<std::byte> tag, const Argon2Input& input, const Argon2Cost& cost,
                      Argon2Watch* watch, const Argon2Kernel* kernel) {
    const BlockMemory memory(cost.memory);
    if (memory.Get() == nullptr)
        return Argon2Result::NoMemory;
    Secret<Seed> seed;
    MakeSeed(*seed, tag.size(), input, cost);
    Filler filler(memory.Get(), cost, kernel != nullptr ? *kernel : BestKernel(), watch);
    filler.PlaceFirstBlocks(*seed);
    if (!filler.Fill())
        return Argon2Result::Stopped;
    filler.MakeTag(tag);
    return Argon2Result::Done;
}

} // namespace quilla
