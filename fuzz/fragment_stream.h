#pragma once

#include "fuzz/require.h"
#include "platform/byte_stream.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

namespace quilla::fuzz {

using Bytes = std::vector<std::byte>;

/// A peer whose bytes arrive in fragments of repeatable random sizes, and which keeps what it is sent: the
/// largest that a correct server can have to say to it is given.
class FragmentStream final : public ByteStream {
  public:
    FragmentStream(std::span<const std::byte> input, unsigned cut, std::size_t longestOutput)
        : input_(input), cut_(cut), state_(cut), longestOutput_(longestOutput) {}

    [[nodiscard]] std::size_t Receive(std::span<std::byte> buffer) override {
        Require(!buffer.empty(), "room to receive into");
        const std::size_t count = std::min({NextFragment(), buffer.size(), input_.size()});
        std::memcpy(buffer.data(), input_.data(), count);
        input_ = input_.subspan(count);
        return count;
    }
    [[nodiscard]] bool Send(std::span<const std::byte> bytes) override {
        output.insert(output.end(), bytes.begin(), bytes.end());
        return output.size() < longestOutput_;
    }
    void SetTimeout(std::uint32_t /*milliseconds*/) override {}

    Bytes output;

  private:
    std::size_t NextFragment() {
        if (cut_ == 0)
            return input_.size();
        state_ = state_ * 1664525 + 1013904223;
        return 1 + (state_ >> 24) % (cut_ * cut_);
    }

    std::span<const std::byte> input_;
    const unsigned cut_;
    std::uint32_t state_;
    const std::size_t longestOutput_;
};

} // namespace quilla::fuzz
