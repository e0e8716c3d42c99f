#pragma once

#include <cstddef>
#include <cstdint>
#include <linux/io_uring.h>

namespace quilla::fuse {

/// The kernel's rings of submissions and completions (io_uring; published source: the header
/// linux/io_uring.h), as far as commands to a device need them: submissions with room for a record, one
/// thread that submits, completions that arrive while it waits.
class IoRing {
  public:
    static constexpr std::size_t kSubmissionSize = 128;

    /// Opens rings for at most so many submissions under way.
    explicit IoRing(unsigned entries);
    ~IoRing();
    IoRing(const IoRing&) = delete;
    IoRing& operator=(const IoRing&) = delete;

    /// Whether the kernel has given them; it may be too old for them, or forbid them.
    [[nodiscard]] bool IsOpen() const { return submissions_ != nullptr; }

    /// From now on the calling thread alone submits and waits; false if the kernel refuses.
    [[nodiscard]] bool Enable();

    /// An empty submission, which the next Exchange hands over.
    [[nodiscard]] io_uring_sqe& Add();

    /// Adds a message to another ring, which takes it as a completion with this `data`. A message that does
    /// not arrive comes back as a failed completion of this ring, with the same `data`.
    void AddMessage(const IoRing& to, std::uint64_t data);

    /// Hands over what was added and waits until so many completions are there; false if the kernel refuses.
    [[nodiscard]] bool Exchange(unsigned completions);

    /// Whether a completion is there.
    [[nodiscard]] bool HasMore() const;

    /// Takes the oldest completion; false if there is none.
    [[nodiscard]] bool Take(io_uring_cqe& completion);

  private:
    [[nodiscard]] std::byte* Map(std::size_t size, std::uint64_t what) const;

    io_uring_params parameters_{};
    int descriptor_ = -1;
    std::byte* rings_ = nullptr;
    std::size_t ringsSize_ = 0;
    std::byte* submissions_ = nullptr;
    unsigned added_ = 0;
};

} // namespace quilla::fuse
