#include "export/fuse/io_ring.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace quilla::fuse {

namespace {

/// A counter in memory that the kernel shares.
std::atomic_ref<std::uint32_t> Counter(std::byte* rings, std::uint32_t offset) {
    return std::atomic_ref(*reinterpret_cast<std::uint32_t*>(rings + offset));
}

} // namespace

IoRing::IoRing(unsigned entries) {
    parameters_.flags = IORING_SETUP_SQE128 | IORING_SETUP_R_DISABLED | IORING_SETUP_SINGLE_ISSUER |
                        IORING_SETUP_DEFER_TASKRUN;
    descriptor_ = static_cast<int>(syscall(SYS_io_uring_setup, entries, &parameters_));
    if (descriptor_ < 0 || (parameters_.features & IORING_FEAT_SINGLE_MMAP) == 0)
        return;
    ringsSize_ = std::max(parameters_.sq_off.array + parameters_.sq_entries * sizeof(std::uint32_t),
                          parameters_.cq_off.cqes + parameters_.cq_entries * sizeof(io_uring_cqe));
    rings_ = Map(ringsSize_, IORING_OFF_SQ_RING);
    if (rings_ == nullptr)
        return;
    auto* const places = reinterpret_cast<std::uint32_t*>(rings_ + parameters_.sq_off.array);
    for (std::uint32_t index = 0; index < parameters_.sq_entries; ++index)
        places[index] = index;
    submissions_ = Map(parameters_.sq_entries * kSubmissionSize, IORING_OFF_SQES);
}

IoRing::~IoRing() {
    if (submissions_ != nullptr)
        munmap(submissions_, parameters_.sq_entries * kSubmissionSize);
    if (rings_ != nullptr)
        munmap(rings_, ringsSize_);
    if (descriptor_ >= 0)
        close(descriptor_);
}

std::byte* IoRing::Map(std::size_t size, std::uint64_t what) const {
    void* const place = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE, descriptor_,
                             static_cast<off_t>(what));
    return place == MAP_FAILED ? nullptr : static_cast<std::byte*>(place);
}

bool IoRing::Enable() {
    return syscall(SYS_io_uring_register, descriptor_, IORING_REGISTER_ENABLE_RINGS, nullptr, 0) == 0;
}

io_uring_sqe& IoRing::Add() {
    const auto tail = Counter(rings_, parameters_.sq_off.tail);
    const std::uint32_t at = tail.load(std::memory_order_relaxed);
    std::byte* const place = submissions_ + (at & (parameters_.sq_entries - 1)) * kSubmissionSize;
    std::memset(place, 0, kSubmissionSize);
    tail.store(at + 1, std::memory_order_release);
    ++added_;
    return *reinterpret_cast<io_uring_sqe*>(place);
}

void IoRing::AddMessage(const IoRing& to, std::uint64_t data) {
    io_uring_sqe& submission = Add();
    submission.opcode = IORING_OP_MSG_RING;
    submission.flags = IOSQE_CQE_SKIP_SUCCESS;
    submission.fd = to.descriptor_;
    submission.addr = IORING_MSG_DATA;
    submission.off = data;
    submission.user_data = data;
}

bool IoRing::Exchange(unsigned completions) {
    const long count =
        syscall(SYS_io_uring_enter, descriptor_, added_, completions, IORING_ENTER_GETEVENTS, nullptr, 0);
    if (count < 0)
        return errno == EINTR || errno == EAGAIN || errno == EBUSY;
    added_ -= static_cast<unsigned>(count);
    return true;
}

bool IoRing::HasMore() const {
    return Counter(rings_, parameters_.cq_off.head).load(std::memory_order_relaxed) !=
           Counter(rings_, parameters_.cq_off.tail).load(std::memory_order_acquire);
}

bool IoRing::Take(io_uring_cqe& completion) {
    if (!HasMore())
        return false;
    const auto head = Counter(rings_, parameters_.cq_off.head);
    const std::uint32_t at = head.load(std::memory_order_relaxed);
    std::memcpy(&completion,
                rings_ + parameters_.cq_off.cqes + (at & (parameters_.cq_entries - 1)) * sizeof(io_uring_cqe),
                sizeof(completion));
    head.store(at + 1, std::memory_order_release);
    return true;
}

} // namespace quilla::fuse
