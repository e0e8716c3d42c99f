// What the compiler expects of a run-time library on ARM: atomic operations, which processors before ARMv6
// have no instructions for, and memory aligned beyond what malloc gives. Handhelds have one processor:
// aligned loads and stores of up to a word are atomic as they are.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <windows.h>

namespace {

/// The system's; the desktop's headers make an operation of the compiler of it.
extern "C" LONG ExchangeIfEqual(volatile LONG* place, LONG wanted,
                                LONG expected) __asm__("InterlockedCompareExchange");
extern "C" LONG ExchangeWord(volatile LONG* place, LONG wanted) __asm__("InterlockedExchange");

template <typename Change>
std::uint32_t ChangeWord(volatile void* place, Change change) {
    auto* const word = static_cast<volatile LONG*>(place);
    for (;;) {
        const LONG before = *word;
        const auto after = static_cast<LONG>(change(static_cast<std::uint32_t>(before)));
        if (ExchangeIfEqual(word, after, before) == before)
            return static_cast<std::uint32_t>(before);
    }
}

/// Two words take a lock. Who finds it taken gives way to who holds it, whatever their priorities.
class PairGuard {
  public:
    PairGuard() {
        while (ExchangeWord(&taken_, 1) != 0)
            Sleep(1);
    }
    ~PairGuard() { ExchangeWord(&taken_, 0); }
    PairGuard(const PairGuard&) = delete;
    PairGuard& operator=(const PairGuard&) = delete;

  private:
    static inline volatile LONG taken_ = 0;
};

} // namespace

extern "C" {

std::uint8_t LoadByte(const volatile std::uint8_t* place, int /*order*/) __asm__("__atomic_load_1");
std::uint8_t LoadByte(const volatile std::uint8_t* place, int /*order*/) {
    return *place;
}

void StoreByte(volatile std::uint8_t* place, std::uint8_t value, int /*order*/) __asm__("__atomic_store_1");
void StoreByte(volatile std::uint8_t* place, std::uint8_t value, int /*order*/) {
    *place = value;
}

std::uint32_t LoadWord(const volatile std::uint32_t* place, int /*order*/) __asm__("__atomic_load_4");
std::uint32_t LoadWord(const volatile std::uint32_t* place, int /*order*/) {
    return *place;
}

void StoreWord(volatile std::uint32_t* place, std::uint32_t value, int /*order*/) __asm__("__atomic_store_4");
void StoreWord(volatile std::uint32_t* place, std::uint32_t value, int /*order*/) {
    *place = value;
}

std::uint64_t LoadPair(const volatile std::uint64_t* place, int /*order*/) __asm__("__atomic_load_8");
std::uint64_t LoadPair(const volatile std::uint64_t* place, int /*order*/) {
    const PairGuard guard;
    return *place;
}

void StorePair(volatile std::uint64_t* place, std::uint64_t value, int /*order*/) __asm__("__atomic_store_8");
void StorePair(volatile std::uint64_t* place, std::uint64_t value, int /*order*/) {
    const PairGuard guard;
    *place = value;
}

std::uint32_t AddToWord(volatile void* place, std::uint32_t value,
                        int /*order*/) __asm__("__atomic_fetch_add_4");
std::uint32_t AddToWord(volatile void* place, std::uint32_t value, int /*order*/) {
    return ChangeWord(place, [=](std::uint32_t before) { return before + value; });
}

std::uint32_t TakeFromWord(volatile void* place, std::uint32_t value,
                           int /*order*/) __asm__("__atomic_fetch_sub_4");
std::uint32_t TakeFromWord(volatile void* place, std::uint32_t value, int /*order*/) {
    return ChangeWord(place, [=](std::uint32_t before) { return before - value; });
}

std::uint32_t SetInWord(volatile void* place, std::uint32_t value,
                        int /*order*/) __asm__("__atomic_fetch_or_4");
std::uint32_t SetInWord(volatile void* place, std::uint32_t value, int /*order*/) {
    return ChangeWord(place, [=](std::uint32_t before) { return before | value; });
}

bool ReplaceWord(volatile LONG* place, LONG* expected, LONG wanted, int /*order*/,
                 int /*failed*/) __asm__("__atomic_compare_exchange_4");
bool ReplaceWord(volatile LONG* place, LONG* expected, LONG wanted, int /*order*/, int /*failed*/) {
    const LONG before = ExchangeIfEqual(place, wanted, *expected);
    const bool replaced = before == *expected;
    *expected = before;
    return replaced;
}
}

/// What the compiler's support library calls after a division by zero.
extern "C" int raise(int /*signal*/) {
    std::abort();
}

/// The address that malloc gave stands in the word before the memory.
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t& /*tag*/) noexcept {
    const auto align = static_cast<std::size_t>(alignment);
    void* const whole = std::malloc(size + align + sizeof(void*));
    if (whole == nullptr)
        return nullptr;
    const auto start = reinterpret_cast<std::uintptr_t>(whole) + sizeof(void*);
    auto* const memory = reinterpret_cast<void**>((start + align - 1) & ~(align - 1));
    memory[-1] = whole;
    return memory;
}

// NOLINTNEXTLINE(cert-dcl54-cpp,misc-new-delete-overloads): what throws is left out on purpose
void operator delete(void* memory, std::align_val_t /*alignment*/) noexcept {
    if (memory != nullptr)
        std::free(static_cast<void**>(memory)[-1]);
}
