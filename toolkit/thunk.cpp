#include "toolkit/thunk.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstring>
#include <new>

namespace quilla {

#if defined(__arm__) || defined(_M_ARM)

BThunk::BThunk(BWindow* object, BObjectProc procedure)
    : words_{0xE59F0004, // ldr r0, [pc, #4]: the object
             0xE59FC004, // ldr r12, [pc, #4]: the procedure
             0xE1A0F00C, // mov pc, r12
             std::bit_cast<std::uint32_t>(object), std::bit_cast<std::uint32_t>(procedure)} {
    FlushInstructionCache(GetCurrentProcess(), words_, sizeof(words_));
}

BThunk::~BThunk() = default;

WNDPROC BThunk::Address() const {
    return reinterpret_cast<WNDPROC>(const_cast<std::uint32_t*>(words_));
}

#else

namespace {

constexpr std::size_t kPageSize = 4096;

/// What a stub loads, at the same place of the data page as the stub has in the code page. While the stub is
/// free, object points to the next free slot.
struct Slot {
    void* object;
    BObjectProc procedure;
};

constexpr std::size_t kStubSize = 16;
constexpr std::size_t kSlotsPerPage = kPageSize / kStubSize;

#if defined(__x86_64__) || defined(_M_X64)

/// mov rcx, [rip + object]; jmp [rip + procedure]
constexpr std::array<unsigned char, kStubSize> kStub = {
    0x48, 0x8B, 0x0D, 0xF9, 0x0F, 0, 0, // 4096 - 7: the slot's object
    0xFF, 0x25, 0xFB, 0x0F, 0,    0,    // 4096 + 8 - 13: the slot's procedure
    0xCC, 0xCC, 0xCC,
};

void WriteStub(std::byte* stub) {
    std::memcpy(stub, kStub.data(), kStub.size());
}

#elif defined(__aarch64__) || defined(_M_ARM64)

/// ldr x0, object; ldr x16, procedure; br x16
constexpr std::array<std::uint32_t, 4> kStub = {0x58008000, 0x58008030, 0xD61F0200, 0xD4200000};

void WriteStub(std::byte* stub) {
    std::memcpy(stub, kStub.data(), kStubSize);
}

#elif defined(__i386__) || defined(_M_IX86)

/// mov eax, [object]; mov [esp + 4], eax; jmp [procedure]: 15 bytes with absolute addresses.
void WriteStub(std::byte* stub) {
    const std::uint32_t slot = std::bit_cast<std::uint32_t>(stub) + kPageSize;
    const std::uint32_t procedure = slot + offsetof(Slot, procedure);
    constexpr std::array<unsigned char, kStubSize> kStub = {0xA1, 0,    0,    0, 0, 0x89, 0x44, 0x24,
                                                            0x04, 0xFF, 0x25, 0, 0, 0,    0,    0xCC};
    std::memcpy(stub, kStub.data(), kStub.size());
    std::memcpy(stub + 1, &slot, sizeof(slot));
    std::memcpy(stub + 11, &procedure, sizeof(procedure));
}

#else
#error "No stub for this processor yet"
#endif

/// Administration of a pair of pages, at the start of its data page: the first slots are never handed out.
struct PageHeader {
    PageHeader* next;
    PageHeader* previous;
    Slot* firstFree;
    std::size_t used;
};

constexpr std::size_t kFirstSlot = (sizeof(PageHeader) + kStubSize - 1) / kStubSize;

/// Pages with free slots come first. Window objects live on one thread, so nothing is locked.
PageHeader* firstPage = nullptr;

Slot* SlotAt(PageHeader* page, std::size_t index) {
    return reinterpret_cast<Slot*>(reinterpret_cast<std::byte*>(page) + index * kStubSize);
}

void Unlink(PageHeader* page) {
    (page->previous != nullptr ? page->previous->next : firstPage) = page->next;
    if (page->next != nullptr)
        page->next->previous = page->previous;
}

void LinkFirst(PageHeader* page) {
    page->previous = nullptr;
    page->next = firstPage;
    if (firstPage != nullptr)
        firstPage->previous = page;
    firstPage = page;
}

void LinkLast(PageHeader* page) {
    PageHeader* last = firstPage;
    while (last != nullptr && last->next != nullptr)
        last = last->next;
    if (last == nullptr)
        return LinkFirst(page);
    page->previous = last;
    page->next = nullptr;
    last->next = page;
}

/// Makes a pair of pages: stubs, written once and from then on only executable, and their data.
PageHeader* CreatePage() {
    auto* const code = static_cast<std::byte*>(
        VirtualAlloc(nullptr, 2 * kPageSize, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
    if (code == nullptr)
        return nullptr;
    for (std::size_t i = kFirstSlot; i < kSlotsPerPage; ++i)
        WriteStub(code + i * kStubSize);
    DWORD writable = 0;
    if (!VirtualProtect(code, kPageSize, PAGE_EXECUTE_READ, &writable)) {
        VirtualFree(code, 0, MEM_RELEASE);
        return nullptr;
    }
    FlushInstructionCache(GetCurrentProcess(), code, kPageSize);

    auto* const page = new (code + kPageSize) PageHeader{};
    for (std::size_t i = kSlotsPerPage; i-- > kFirstSlot;)
        page->firstFree = new (SlotAt(page, i)) Slot{.object = page->firstFree, .procedure = nullptr};
    LinkFirst(page);
    return page;
}

Slot* AllocateSlot() {
    PageHeader* const page =
        firstPage != nullptr && firstPage->firstFree != nullptr ? firstPage : CreatePage();
    if (page == nullptr)
        return nullptr;
    Slot* const slot = page->firstFree;
    page->firstFree = static_cast<Slot*>(slot->object);
    ++page->used;
    if (page->firstFree == nullptr) {
        Unlink(page);
        LinkLast(page);
    }
    return slot;
}

void FreeSlot(Slot* slot) {
    const auto address = reinterpret_cast<std::uintptr_t>(slot);
    auto* const page = reinterpret_cast<PageHeader*>(address - address % kPageSize);
    *slot = {.object = page->firstFree, .procedure = nullptr};
    page->firstFree = slot;
    Unlink(page);
    if (--page->used == 0)
        VirtualFree(reinterpret_cast<std::byte*>(page) - kPageSize, 0, MEM_RELEASE);
    else
        LinkFirst(page);
}

} // namespace

BThunk::BThunk(BWindow* object, BObjectProc procedure) : stub_(nullptr) {
    Slot* const slot = AllocateSlot();
    if (slot == nullptr)
        return;
    *slot = {.object = object, .procedure = procedure};
    stub_ = reinterpret_cast<std::byte*>(slot) - kPageSize;
}

BThunk::~BThunk() {
    if (stub_ != nullptr)
        FreeSlot(reinterpret_cast<Slot*>(static_cast<std::byte*>(stub_) + kPageSize));
}

WNDPROC BThunk::Address() const {
    return reinterpret_cast<WNDPROC>(stub_);
}

#endif

} // namespace quilla
