#pragma once

#include <cstddef>
#include <span>
#include <type_traits>

namespace quilla {

/// Overwrites memory with zeros; the compiler cannot remove the call. Every secret ends here.
void WipeMemory(void* memory, std::size_t size);

/// Overwrites a trivially copyable object, padding included.
template <typename T>
void Wipe(T& object) {
    static_assert(std::is_trivially_copyable_v<T> && !std::is_pointer_v<T>);
    WipeMemory(&object, sizeof(object));
}

/// Holds a secret by value and wipes it when it goes out of scope.
template <typename T>
class Secret {
    static_assert(std::is_trivially_copyable_v<T>);

  public:
    Secret() = default;
    Secret(const Secret&) = delete;
    Secret& operator=(const Secret&) = delete;
    ~Secret() { Wipe(value_); }

    T& operator*() { return value_; }
    const T& operator*() const { return value_; }
    T* operator->() { return &value_; }
    const T* operator->() const { return &value_; }

    /// Overwrites the secret before its scope ends.
    void WipeNow() { Wipe(value_); }

  private:
    T value_{};
};

} // namespace quilla
