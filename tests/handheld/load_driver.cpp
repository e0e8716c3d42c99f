// load_driver IMAGE ADDRESS RECORD PLAIN START: runs the driver of a handheld as it is, without its system.
// The image is mapped at a hexadecimal address (0: at its own base), its imports are bound to what stands
// below, and then it is used through its entry points: a volume is opened by a record, PLAIN is written from
// sector START on, and the same sectors, read again, go to the standard output. Linux, 32 bits, the processor
// of the image.

#include "platform/disk_codes.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

static_assert(sizeof(void*) == 4);
using Handle = std::intptr_t;

[[noreturn]] void Fail(const char* what) {
    std::fprintf(stderr, "load_driver: %s\n", what);
    std::exit(1);
}

// What the driver asks of the system. On x86 it calls with the stack aligned to a word only, which the build
// allows for.

std::uint32_t lastError;
std::uint32_t GetLastError() {
    return lastError;
}
void SetLastError(std::uint32_t error) {
    lastError = error;
}

Handle CreateFileW(const char16_t* path, std::uint32_t access, std::uint32_t, void*, std::uint32_t,
                   std::uint32_t, Handle) {
    constexpr std::uint32_t kWrite = 0x40000000;
    const std::string name(path, std::find(path, path + 260, u'\0'));
    return open64(name.c_str(), (access & kWrite) != 0 ? O_RDWR : O_RDONLY);
}

int CloseHandle(Handle file) {
    return close(file) == 0;
}

std::uint32_t SetFilePointer(Handle file, std::int32_t low, std::int32_t* high, std::uint32_t) {
    const std::int64_t wanted = static_cast<std::int64_t>(*high) << 32 | static_cast<std::uint32_t>(low);
    return static_cast<std::uint32_t>(lseek64(file, wanted, SEEK_SET));
}

int ReadFile(Handle file, void* buffer, std::uint32_t size, std::uint32_t* count, void*) {
    const ssize_t done = read(file, buffer, size);
    *count = done > 0 ? static_cast<std::uint32_t>(done) : 0;
    return done >= 0;
}

int WriteFile(Handle file, const void* buffer, std::uint32_t size, std::uint32_t* count, void*) {
    const ssize_t done = write(file, buffer, size);
    *count = done > 0 ? static_cast<std::uint32_t>(done) : 0;
    return done >= 0;
}

std::uint32_t GetFileSize(Handle file, std::uint32_t* high) {
    struct stat64 status {};
    fstat64(file, &status);
    *high = static_cast<std::uint32_t>(status.st_size >> 32);
    return static_cast<std::uint32_t>(status.st_size);
}

int FlushFileBuffers(Handle file) {
    return fsync(file) == 0;
}

void* VirtualAlloc(void*, std::uint32_t size, std::uint32_t, std::uint32_t) {
    return std::calloc(1, size);
}
int VirtualFree(void* memory, std::uint32_t, std::uint32_t) {
    std::free(memory);
    return 1;
}

std::size_t MeasureText(const char16_t* text) {
    return std::u16string_view(text).size();
}

std::int32_t InterlockedCompareExchange(std::int32_t* place, std::int32_t wanted, std::int32_t expected) {
    return __sync_val_compare_and_swap(place, expected, wanted);
}

std::int32_t InterlockedExchange(std::int32_t* place, std::int32_t wanted) {
    return __sync_lock_test_and_set(place, wanted);
}

void GetSystemInfo(std::uint32_t* words) {
    constexpr std::size_t kWords = 9;
    constexpr std::size_t kProcessorCount = 5;
    std::fill_n(words, kWords, 0);
    words[kProcessorCount] = 1;
}

/// A system without a clock, and one thread that is alone.
int DoNothing() {
    return 1;
}

int Refuse() {
    return 0;
}

void Miss() {
    Fail("the driver called what is not served here");
}

struct Service {
    std::string_view name;
    void* function;
};

template <typename Function>
Service Serve(std::string_view name, Function* function) {
    return {name, reinterpret_cast<void*>(function)};
}

void* FindService(std::string_view name) {
    static const Service kServices[] = {
        Serve("GetLastError", GetLastError),
        Serve("SetLastError", SetLastError),
        Serve("CreateFileW", CreateFileW),
        Serve("CloseHandle", CloseHandle),
        Serve("SetFilePointer", SetFilePointer),
        Serve("ReadFile", ReadFile),
        Serve("WriteFile", WriteFile),
        Serve("GetFileSize", GetFileSize),
        Serve("FlushFileBuffers", FlushFileBuffers),
        Serve("VirtualAlloc", VirtualAlloc),
        Serve("VirtualFree", VirtualFree),
        Serve("InitializeCriticalSection", DoNothing),
        Serve("DeleteCriticalSection", DoNothing),
        Serve("EnterCriticalSection", DoNothing),
        Serve("LeaveCriticalSection", DoNothing),
        Serve("GetFileInformationByHandle", Refuse),
        Serve("GetSystemInfo", GetSystemInfo),
        Serve("GetLocalTime", DoNothing),
        Serve("SystemTimeToFileTime", DoNothing),
        Serve("InterlockedCompareExchange", InterlockedCompareExchange),
        Serve("InterlockedExchange", InterlockedExchange),
        Serve("wcslen", MeasureText),
        Serve("malloc", std::malloc),
        Serve("free", std::free),
        Serve("memcpy", static_cast<void* (*)(void*, const void*, std::size_t)>(std::memcpy)),
        Serve("memmove", static_cast<void* (*)(void*, const void*, std::size_t)>(std::memmove)),
        Serve("memset", static_cast<void* (*)(void*, int, std::size_t)>(std::memset)),
    };
    const auto* const found = std::ranges::find(kServices, name, &Service::name);
    return found == std::end(kServices) ? reinterpret_cast<void*>(Miss) : found->function;
}

std::vector<char> ReadWhole(const char* path) {
    std::FILE* const file = std::fopen(path, "rb");
    if (file == nullptr)
        Fail(path);
    std::vector<char> content;
    char piece[4096];
    for (std::size_t count = 0; (count = std::fread(piece, 1, sizeof(piece), file)) > 0;)
        content.insert(content.end(), piece, piece + count);
    std::fclose(file);
    return content;
}

/// An image in memory. Offsets as in the PE format documentation (Microsoft), 32-bit images.
class Image {
  public:
    Image(const std::vector<char>& file, std::uint32_t address) {
        const auto word = [&](std::size_t at) { return Get<std::uint32_t>(file.data() + at); };
        const std::size_t header = word(0x3C);
        const std::size_t optional = header + 24;
        const std::uint32_t base = word(optional + 28);
        const std::uint32_t place = address != 0 ? address : base;
        const std::uint32_t size = word(optional + 56);
        memory_ =
            static_cast<char*>(mmap(reinterpret_cast<void*>(place), size, PROT_READ | PROT_WRITE | PROT_EXEC,
                                    MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0));
        if (memory_ != reinterpret_cast<char*>(place))
            Fail("the image's address is taken");
        std::memcpy(memory_, file.data(), word(optional + 60));
        const std::size_t sections = optional + Get<std::uint16_t>(file.data() + header + 20);
        for (std::size_t i = 0; i < Get<std::uint16_t>(file.data() + header + 6); ++i) {
            const std::size_t section = sections + 40 * i;
            std::memcpy(memory_ + word(section + 12), file.data() + word(section + 20), word(section + 16));
        }
        directories_ = optional + 96;
        Relocate(place - base);
        Bind();
        __builtin___clear_cache(memory_, memory_ + size);
    }

    template <typename Function>
    Function* Find(std::string_view name) const {
        const std::uint32_t table = Directory(0);
        for (std::uint32_t i = 0; i < Word(table + 24); ++i) {
            if (name != memory_ + Word(Word(table + 32) + 4 * i))
                continue;
            const auto index = Get<std::uint16_t>(memory_ + Word(table + 36) + 2 * i);
            return reinterpret_cast<Function*>(memory_ + Word(Word(table + 28) + 4 * index));
        }
        Fail("an entry point is missing");
    }

  private:
    template <typename Value>
    static Value Get(const char* from) {
        Value value;
        std::memcpy(&value, from, sizeof(value));
        return value;
    }

    [[nodiscard]] std::uint32_t Word(std::uint32_t at) const { return Get<std::uint32_t>(memory_ + at); }
    void Put(std::uint32_t at, std::uint32_t value) { std::memcpy(memory_ + at, &value, sizeof(value)); }

    [[nodiscard]] std::uint32_t Directory(std::size_t index, std::size_t part = 0) const {
        return Word(static_cast<std::uint32_t>(directories_ + 8 * index + part));
    }

    void Relocate(std::uint32_t distance) {
        constexpr unsigned kWholeWord = 3;
        const std::uint32_t end = Directory(5) + Directory(5, 4);
        for (std::uint32_t block = Directory(5); block < end; block += Word(block + 4))
            for (std::uint32_t entry = block + 8; entry < block + Word(block + 4); entry += 2) {
                const auto what = Get<std::uint16_t>(memory_ + entry);
                const std::uint32_t at = Word(block) + (what & 0xFFFU);
                if (what >> 12 == kWholeWord)
                    Put(at, Word(at) + distance);
                else if (what >> 12 != 0)
                    Fail("a relocation of an unknown kind");
            }
    }

    void Bind() {
        for (std::uint32_t library = Directory(1); Word(library + 12) != 0; library += 20)
            for (std::uint32_t slot = Word(library + 16); Word(slot) != 0; slot += 4)
                Put(slot, reinterpret_cast<std::uintptr_t>(FindService(memory_ + Word(slot) + 2)));
    }

    char* memory_;
    std::size_t directories_;
};

using Control = int(std::uintptr_t, std::uint32_t, void*, std::uint32_t, void*, std::uint32_t,
                    std::uint32_t*);

/// Moves a text of sectors, in two buffers where it is longer than one sector.
void MoveSectors(Control* control, std::uintptr_t device, std::uint32_t code, std::uint32_t start,
                 std::vector<char>& text) {
    constexpr auto kSector = static_cast<std::uint32_t>(quilla::kSectorSize);
    const auto size = static_cast<std::uint32_t>(text.size());
    auto* const bytes = reinterpret_cast<std::uint8_t*>(text.data());
    quilla::ScatterRequest request{.start = start,
                                   .sectorCount = size / kSector,
                                   .bufferCount = size > kSector ? 2U : 1U,
                                   .status = 1,
                                   .completion = nullptr,
                                   .buffers = {}};
    request.buffers[0] = {.address = bytes, .length = kSector};
    request.buffers[1] = {.address = bytes + kSector, .length = size - kSector};
    std::uint32_t returned = 0;
    if (control(device, code, &request, sizeof(request), nullptr, 0, &returned) == 0 || request.status != 0)
        Fail("a transfer failed");
}

} // namespace

int main(int count, char** words) {
    if (count != 6)
        Fail("IMAGE ADDRESS RECORD PLAIN START");
    const Image driver(ReadWhole(words[1]), static_cast<std::uint32_t>(std::strtoul(words[2], nullptr, 16)));
    std::vector<char> record = ReadWhole(words[3]);
    std::vector<char> plain = ReadWhole(words[4]);
    const auto start = static_cast<std::uint32_t>(std::strtoul(words[5], nullptr, 10));

    const std::uintptr_t device = driver.Find<std::uintptr_t(std::uintptr_t)>("SEC_Init")(
        reinterpret_cast<std::uintptr_t>(record.data()));
    if (device == 0)
        Fail("SEC_Init refused");
    auto* const control = driver.Find<Control>("SEC_IOControl");
    std::vector<char> back(plain.size());
    MoveSectors(control, device, quilla::IOCTL_DISK_WRITE, start, plain);
    MoveSectors(control, device, quilla::IOCTL_DISK_READ, start, back);
    std::fwrite(back.data(), 1, back.size(), stdout);
    return driver.Find<int(std::uintptr_t)>("SEC_Deinit")(device) != 0 ? 0 : 1;
}
