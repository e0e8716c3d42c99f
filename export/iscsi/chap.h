#pragma once

#include "export/iscsi/text_keys.h"

#include <array>
#include <cstddef>
#include <string_view>

namespace quilla::iscsi {

/// Compares in a time that depends on the lengths only.
[[nodiscard]] bool IsSameSecret(std::span<const std::byte> one, std::span<const std::byte> other);

/// The target's side of CHAP with MD5 (RFC 1994; RFC 7143, 12.1.3), one way: the initiator proves that it
/// knows the secret.
class Chap {
  public:
    enum class Step : std::uint8_t { Algorithm, Response, Passed, Failed };

    /// Name and secret belong to the caller.
    Chap(std::string_view name, std::string_view secret) : name_(name), secret_(secret) {}

    /// A key of the exchange.
    void Take(const TextKey& pair);

    /// Called when the keys of a unit have been taken: judges them and adds what is next to the answer.
    Step Advance(TextWriter& answer);

    [[nodiscard]] bool HasPassed() const { return step_ == Step::Passed; }

  private:
    [[nodiscard]] bool Begin(TextWriter& answer);
    [[nodiscard]] bool IsProven() const;

    std::string_view name_;
    std::string_view secret_;
    Step step_ = Step::Algorithm;
    std::array<std::byte, 17> challenge_{}; // identifier, challenge
    bool offersMd5_ = false;
    bool isNameRight_ = false;
    bool wantsProof_ = false; // of the target: there is no secret for that
    std::array<std::byte, 16> response_{};
    std::size_t responseSize_ = 0;
};

} // namespace quilla::iscsi
