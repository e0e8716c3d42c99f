#include "toolkit/stub_pages.h"

#if !defined(__arm__) && !defined(_M_ARM)

#include "toolkit/stub_code.h"
#include "toolkit/window_procedure.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>
#include <windows.h>

namespace quilla {

namespace {

constexpr std::size_t kPageSize = 4096;
constexpr std::size_t kSlots = kPageSize / stub::kStubSize;

/// The first slot of a code page holds the address that all its stubs jump to, out of reach of stray writes.
constexpr std::size_t kFirstStub = 1;

/// The writable page behind a code page.
struct StubPage {
    BWindow* objects[kSlots]; ///< By slot; null for a free one.
    std::size_t used;
    StubPage* next;

    [[nodiscard]] std::uint8_t* Code() { return reinterpret_cast<std::uint8_t*>(this) - kPageSize; }
};
static_assert(sizeof(StubPage) <= kPageSize);

constinit StubPage* firstPage = nullptr;

stub::Code EncodeStub(StubPage& page, std::size_t slot) {
    const auto object = reinterpret_cast<std::uintptr_t>(&page.objects[slot]);
    const auto procedure = reinterpret_cast<std::uintptr_t>(page.Code());
#if defined(__i386__) || defined(_M_IX86)
    return stub::EncodeX86(object, procedure);
#else
    const std::uintptr_t start = procedure + slot * stub::kStubSize;
    const auto toObject = static_cast<std::int32_t>(object - start);
    const auto toProcedure = static_cast<std::int32_t>(procedure - start);
#if defined(__x86_64__) || defined(_M_X64)
    return stub::EncodeX64(toObject, toProcedure);
#elif defined(__aarch64__) || defined(_M_ARM64)
    return stub::EncodeArm64(toObject, toProcedure);
#else
#error "This processor needs an encoding of the window stub in toolkit/stub_code.h"
#endif
#endif
}

void WriteCode(StubPage& page) {
    std::uint8_t* const code = page.Code();
    const auto procedure = reinterpret_cast<std::uintptr_t>(&ToolkitWindowProcedure);
    std::memcpy(code, &procedure, sizeof(procedure));
    for (std::size_t slot = kFirstStub; slot < kSlots; ++slot) {
        const stub::Code stub = EncodeStub(page, slot);
        std::memcpy(code + slot * stub::kStubSize, stub.data(), stub.size());
    }
}

StubPage* AddPage() {
    void* const memory = VirtualAlloc(nullptr, 2 * kPageSize, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
    if (!memory)
        return nullptr;
    auto* const page = new (static_cast<std::uint8_t*>(memory) + kPageSize) StubPage{};
    WriteCode(*page);
    DWORD former = 0;
    if (!VirtualProtect(memory, kPageSize, PAGE_EXECUTE_READ, &former)) {
        VirtualFree(memory, 0, MEM_RELEASE);
        return nullptr;
    }
    FlushInstructionCache(GetCurrentProcess(), memory, kPageSize);
    page->next = firstPage;
    return firstPage = page;
}

StubPage* FindPageWithRoom() {
    StubPage* page = firstPage;
    while (page && page->used == kSlots - kFirstStub)
        page = page->next;
    return page;
}

void RemovePage(StubPage& page) {
    StubPage** link = &firstPage;
    while (*link != &page)
        link = &(*link)->next;
    *link = page.next;
    VirtualFree(page.Code(), 0, MEM_RELEASE);
}

} // namespace

void* AllocateStub(BWindow& object) {
    StubPage* page = FindPageWithRoom();
    if (!page)
        page = AddPage();
    if (!page)
        return nullptr;
    BWindow** const slots = page->objects;
    const auto slot =
        static_cast<std::size_t>(std::find(slots + kFirstStub, slots + kSlots, nullptr) - slots);
    slots[slot] = &object;
    ++page->used;
    return page->Code() + slot * stub::kStubSize;
}

void FreeStub(void* stub) {
    if (!stub)
        return;
    const std::size_t offset = reinterpret_cast<std::uintptr_t>(stub) % kPageSize;
    auto* const page = reinterpret_cast<StubPage*>(static_cast<std::uint8_t*>(stub) - offset + kPageSize);
    const std::size_t slot = offset / stub::kStubSize;
    page->objects[slot] = nullptr;
    // The last page stays for the next object.
    if (--page->used == 0 && (page != firstPage || page->next))
        RemovePage(*page);
}

} // namespace quilla

#endif
