// The per-object stubs: what they do, where they live, what they cost.

#include "toolkit/stub_code.h"
#include "toolkit/window.h"
#include "toolkit/window_procedure.h"

#include <gtest/gtest.h>
#include <memory>
#include <set>
#include <vector>

namespace quilla {
namespace {

std::uintptr_t PageOf(const BWindow& object) {
    constexpr std::uintptr_t kPageSize = 4096;
    return reinterpret_cast<std::uintptr_t>(object.thunk.Address()) & ~(kPageSize - 1);
}

bool IsCommitted(std::uintptr_t page) {
    MEMORY_BASIC_INFORMATION info{};
    VirtualQuery(reinterpret_cast<const void*>(page), &info, sizeof(info));
    return info.State == MEM_COMMIT;
}

TEST(Thunk, EachStubAnswersWithItsOwnObject) {
    constexpr std::size_t kObjects = 10'000;
    const BWindow keeper; // its page stays
    std::set<std::uintptr_t> pages;
    {
        std::vector<std::unique_ptr<BWindow>> objects(kObjects);
        const auto create = [&](std::size_t step) {
            for (std::size_t i = 0; i < kObjects; i += step) {
                objects[i] = std::make_unique<BWindow>();
                pages.insert(PageOf(*objects[i]));
            }
        };
        create(1);
        for (std::size_t i = 0; i < kObjects; i += 3)
            objects[i].reset();
        create(3);
        for (const auto& object : objects) {
            const WNDPROC stub = object->thunk.Address();
            ASSERT_EQ(stub(nullptr, kObjectQuery, 0, 0), reinterpret_cast<LRESULT>(object.get()));
        }
        // 16 bytes of code for each object, in pages of 4 KiB.
        EXPECT_LE(pages.size(), kObjects / 255 + 2) << "freed stubs are used again";
    }
    for (const std::uintptr_t page : pages)
        EXPECT_EQ(IsCommitted(page), page == PageOf(keeper));
}

TEST(Thunk, AWindowThatOutlivesItsObjectIsHarmless) {
    auto object = std::make_unique<BWindow>();
    const BWindow neighbour;
    const WNDPROC stub = object->thunk.Address();
    object.reset();
    EXPECT_EQ(stub(nullptr, WM_CLOSE, 0, 0), 0);
}

/// The encodings for the other processors; checked once with a disassembler, kept here as bytes.
TEST(Thunk, EncodingsOfTheProcessors) {
    constexpr auto arm = stub::EncodeArm(0x12345678, 0x9ABCDEF0);
    EXPECT_EQ(arm,
              (std::array<std::uint32_t, 5>{0xE59F0004, 0xE59FC004, 0xE1A0F00C, 0x12345678, 0x9ABCDEF0}));
    // mov rcx, [rip + 0xFF9]; jmp [rip - 0x2D]
    EXPECT_EQ(stub::EncodeX64(0x1000, -0x20), (stub::Code{0x48, 0x8B, 0x0D, 0xF9, 0x0F, 0, 0, 0xFF, 0x25,
                                                          0xD3, 0xFF, 0xFF, 0xFF, 0xCC, 0xCC, 0xCC}));
    // mov eax, [0x403020]; mov [esp + 4], eax; jmp [0x401000]
    EXPECT_EQ(stub::EncodeX86(0x403020, 0x401000), (stub::Code{0xA1, 0x20, 0x30, 0x40, 0, 0x89, 0x44, 0x24,
                                                               0x04, 0xFF, 0x25, 0x00, 0x10, 0x40, 0, 0xCC}));
    // ldr x0, +0x1000; ldr x16, -0x20 from the stub's start; br x16
    EXPECT_EQ(stub::EncodeArm64(0x1000, -0x20), (stub::Code{0x00, 0x80, 0x00, 0x58, 0xF0, 0xFE, 0xFF, 0x58,
                                                            0x00, 0x02, 0x1F, 0xD6, 0, 0, 0, 0}));
}

} // namespace
} // namespace quilla
