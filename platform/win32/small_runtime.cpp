// The few pieces of the C++ run-time library that the product uses, for a program without exceptions. The
// library's own versions can throw and bring the whole machinery of exceptions with them, a third of the
// program's size.

#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

void* Allocate(std::size_t size) noexcept {
    return std::malloc(size != 0 ? size : 1);
}

} // namespace

const std::nothrow_t std::nothrow{};

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return Allocate(size);
}

void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return Allocate(size);
}

// The product allocates with std::nothrow only, and what throws is left out on purpose.
// NOLINTBEGIN(cert-dcl54-cpp,misc-new-delete-overloads)

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}

void operator delete[](void* memory) noexcept {
    std::free(memory);
}

void operator delete[](void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}

// NOLINTEND(cert-dcl54-cpp,misc-new-delete-overloads)

/// A call of an operation that no class has given a body.
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the compiler's name for it
extern "C" [[noreturn]] void __cxa_pure_virtual() {
    std::abort();
}

namespace std { // NOLINT(cert-dcl58-cpp): the library's headers call it by this name

/// A position outside a text: an error of the program, which ends it.
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp,cert-dcl50-cpp): as above
[[noreturn]] void __throw_out_of_range_fmt(const char* /*format*/, ...) {
    std::abort();
}

} // namespace std
