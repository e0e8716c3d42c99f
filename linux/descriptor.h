#pragma once

#include <unistd.h>
#include <utility>

namespace quilla {

/// Owns a descriptor of the system.
class Descriptor {
  public:
    Descriptor() = default;
    explicit Descriptor(int number) : number_(number) {}
    ~Descriptor() { Close(); }
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    [[nodiscard]] bool IsOpen() const { return number_ >= 0; }
    [[nodiscard]] int Get() const { return number_; }
    /// Gives the descriptor up to the caller.
    [[nodiscard]] int Release() { return std::exchange(number_, -1); }
    void Close() {
        if (number_ >= 0)
            close(std::exchange(number_, -1));
    }

  private:
    int number_ = -1;
};

} // namespace quilla
