// The per-object stubs: what they do, where they live, what they cost.

#include "tests/toolkit/toolkit_fixture.h"
#include "toolkit/stub_code.h"
#include "toolkit/stub_pages.h"
#include "toolkit/window_procedure.h"

#include <memory>

namespace quilla {
namespace {

using test::Frame;
using test::Owned;

MEMORY_BASIC_INFORMATION RegionOf(const void* address) {
    MEMORY_BASIC_INFORMATION region = {};
    VirtualQuery(address, &region, sizeof(region));
    return region;
}

const void* StubOf(const BWindow& object) {
    return reinterpret_cast<const void*>(object.thunk.Address());
}

/// Bytes of the address space for which the predicate holds.
template <typename Predicate>
std::size_t CountBytes(Predicate counts) {
    std::size_t total = 0;
    MEMORY_BASIC_INFORMATION region = {};
    for (const std::byte* at = nullptr; VirtualQuery(at, &region, sizeof(region)) != 0;
         at += region.RegionSize) {
        if (region.State == MEM_COMMIT && counts(region))
            total += region.RegionSize;
    }
    return total;
}

std::size_t WritableExecutableBytes() {
    return CountBytes([](const MEMORY_BASIC_INFORMATION& region) {
        return (region.Protect & (PAGE_EXECUTE_READWRITE | PAGE_EXECUTE_WRITECOPY)) != 0;
    });
}

std::size_t PrivateBytes() {
    return CountBytes([](const MEMORY_BASIC_INFORMATION& region) { return region.Type == MEM_PRIVATE; });
}

TEST(Thunk, StubsAreExecutableAndNeverWritable) {
    const std::size_t before = WritableExecutableBytes();
    const BWindow object;
    const MEMORY_BASIC_INFORMATION code = RegionOf(StubOf(object));
    EXPECT_EQ(code.Protect, static_cast<DWORD>(PAGE_EXECUTE_READ));
    // Data follows code, and is not executable.
    const MEMORY_BASIC_INFORMATION data =
        RegionOf(static_cast<const std::byte*>(code.BaseAddress) + code.RegionSize);
    EXPECT_EQ(data.AllocationBase, code.AllocationBase);
    EXPECT_EQ(data.Protect, static_cast<DWORD>(PAGE_READWRITE));
    EXPECT_EQ(WritableExecutableBytes(), before);
}

TEST(Thunk, EachStubAnswersWithItsOwnObject) {
    constexpr std::size_t kObjects = 10'000;
    const BWindow keeper; // its page stays
    const std::size_t pages = CountStubPages();
    const std::size_t writableExecutable = WritableExecutableBytes();
    {
        std::vector<std::unique_ptr<BWindow>> objects;
        for (std::size_t i = 0; i < kObjects; ++i)
            objects.push_back(std::make_unique<BWindow>());
        for (const auto& object : objects) {
            ASSERT_EQ(object->thunk.Address()(nullptr, kObjectQuery, 0, 0),
                      reinterpret_cast<LRESULT>(object.get()));
        }
        // 16 bytes of code for each object, in pages of 4 KiB.
        EXPECT_LE(CountStubPages(), pages + kObjects / 255 + 1);
        EXPECT_EQ(WritableExecutableBytes(), writableExecutable);

        // Given back in another order than taken.
        for (std::size_t i = 0; i < kObjects; i += 2)
            objects[i].reset();
        for (std::size_t i = 0; i < kObjects; i += 2)
            objects[i] = std::make_unique<BWindow>();
        EXPECT_LE(CountStubPages(), pages + kObjects / 255 + 1) << "freed stubs are used again";
    }
    EXPECT_EQ(CountStubPages(), pages);
}

using ThunkOfWindow = test::ToolkitTest;

TEST_F(ThunkOfWindow, BindingAndUnbindingManyTimesDoesNotGrow) {
    Owned<Frame> frame;
    ASSERT_NE(frame.Create(), nullptr);
    const HWND window = frame.hwnd;
    frame.Detach();

    const auto bindMany = [&](int times) {
        for (int i = 0; i < times; ++i) {
            const auto object = std::make_unique<BWindow>();
            object->Attach(window);
            ASSERT_EQ(ObjectFromHandle(window), object.get());
            object->Detach();
        }
    };
    bindMany(1'000);
    const std::size_t pages = CountStubPages();
    const std::size_t bytes = PrivateBytes();
    bindMany(10'000);
    EXPECT_EQ(CountStubPages(), pages);
    EXPECT_LE(PrivateBytes(), bytes + 64 * 1024);
    EXPECT_EQ(ObjectFromHandle(window), nullptr);
    frame.Attach(window);
}

TEST(Thunk, AWindowThatOutlivesItsObjectIsHarmless) {
    auto object = std::make_unique<BWindow>();
    const BWindow neighbour;
    const WNDPROC stub = object->thunk.Address();
    object.reset();
    EXPECT_EQ(stub(nullptr, WM_CLOSE, 0, 0), 0);
}

// The encodings for the other processors; checked once with a disassembler, kept here as bytes.

TEST(StubCode, Arm) {
    constexpr auto code = stub::EncodeArm(0x12345678, 0x9ABCDEF0);
    EXPECT_EQ(code,
              (std::array<std::uint32_t, 5>{0xE59F0004, 0xE59FC004, 0xE1A0F00C, 0x12345678, 0x9ABCDEF0}));
}

TEST(StubCode, X64) {
    // mov rcx, [rip + 0xFF9]; jmp [rip - 0x2D]
    EXPECT_EQ(stub::EncodeX64(0x1000, -0x20), (stub::Code{0x48, 0x8B, 0x0D, 0xF9, 0x0F, 0, 0, 0xFF, 0x25,
                                                          0xD3, 0xFF, 0xFF, 0xFF, 0xCC, 0xCC, 0xCC}));
}

TEST(StubCode, X86) {
    // mov eax, [0x403020]; mov [esp + 4], eax; jmp [0x401000]
    EXPECT_EQ(stub::EncodeX86(0x403020, 0x401000), (stub::Code{0xA1, 0x20, 0x30, 0x40, 0, 0x89, 0x44, 0x24,
                                                               0x04, 0xFF, 0x25, 0x00, 0x10, 0x40, 0, 0xCC}));
}

TEST(StubCode, Arm64) {
    // ldr x0, +0x1000; ldr x16, -0x20 from the stub's start; br x16
    EXPECT_EQ(stub::EncodeArm64(0x1000, -0x20), (stub::Code{0x00, 0x80, 0x00, 0x58, 0xF0, 0xFE, 0xFF, 0x58,
                                                            0x00, 0x02, 0x1F, 0xD6, 0, 0, 0, 0}));
}

} // namespace
} // namespace quilla
