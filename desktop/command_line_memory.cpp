// Where a process keeps its command line, and how all of these copies are found and wiped.

#include "desktop/command_line_memory.h"

#include "platform/locked_memory.h"
#include "platform/wipe.h"

#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <span>
#include <string_view>
#include <utility>
#include <windows.h>

namespace quilla {

namespace {

/// What TakeCommandLine was given: the program's name and the arguments, null at the end.
wchar_t** runTimeWords = nullptr;

/// Where the arguments start in a command line, as the run-time library has it: the program's name ends at
/// the first blank or tab outside quotes, and these may stand anywhere in it, as in "C:\Program Files"\x.exe.
std::size_t FindArguments(std::wstring_view line) {
    bool isQuoted = false;
    std::size_t at = 0;
    for (; at < line.size() && (isQuoted || line[at] > L' '); ++at)
        isQuoted ^= line[at] == L'"';
    while (at < line.size() && line[at] <= L' ')
        ++at;
    return at;
}

/// Units of memory that are wiped when they are given back; none without memory.
template <typename Unit>
class WipedArray {
  public:
    explicit WipedArray(std::size_t count)
        : units_(static_cast<Unit*>(AllocateLockedMemory(count * sizeof(Unit)))),
          count_(units_ != nullptr ? count : 0) {}
    ~WipedArray() { ReleaseLockedMemory(units_, count_ * sizeof(Unit)); }
    WipedArray(WipedArray&& other) noexcept
        : units_(std::exchange(other.units_, nullptr)), count_(std::exchange(other.count_, 0)) {}
    WipedArray& operator=(WipedArray&&) = delete;

    [[nodiscard]] std::span<Unit> Get() const { return {units_, count_}; }

  private:
    Unit* units_;
    std::size_t count_;
};

/// A text to look for, kept inverted so that the search does not find its own copy.
class Pattern {
  public:
    explicit Pattern(std::span<const std::byte> text) : inverted_(text.size()) {
        std::ranges::transform(text.first(Size()), inverted_.Get().begin(),
                               [](std::byte value) { return ~value; });
    }

    [[nodiscard]] std::size_t Size() const { return inverted_.Get().size(); }

    /// Overwrites the text wherever it stands in a stretch of memory, which may have gone but for its copy.
    void WipeIn(std::byte* memory, std::span<const std::byte> copy) const {
        const auto isSame = [](std::byte value, std::byte inverted) { return value == ~inverted; };
        const std::span<const std::byte> wanted = inverted_.Get();
        for (auto found = copy.begin(); Size() != 0; found += static_cast<std::ptrdiff_t>(Size())) {
            found = std::search(found, copy.end(), wanted.begin(), wanted.end(), isSame);
            if (found == copy.end())
                return;
            WriteZeros(memory + (found - copy.begin()), Size());
        }
    }

  private:
    static void WriteZeros(std::byte* memory, std::size_t size) {
        static constexpr std::byte kZeros[256]{};
        for (std::size_t done = 0; done < size; done += sizeof(kZeros))
            WriteProcessMemory(GetCurrentProcess(), memory + done, kZeros,
                               std::min(sizeof(kZeros), size - done), nullptr);
    }

    WipedArray<std::byte> inverted_;
};

/// A text as the system keeps it and as programs with 8-bit characters do, zeros inside it included.
class Forms {
  public:
    explicit Forms(std::wstring_view text)
        : wide_(std::as_bytes(std::span(text))), narrow_(std::as_bytes(Narrow(text).Get())) {}

    [[nodiscard]] std::size_t Size() const { return std::max(wide_.Size(), narrow_.Size()); }

    void WipeIn(std::byte* memory, std::span<const std::byte> copy) const {
        wide_.WipeIn(memory, copy);
        narrow_.WipeIn(memory, copy);
    }

  private:
    static WipedArray<char> Narrow(std::wstring_view text) {
        const int units = static_cast<int>(text.size());
        const int size = WideCharToMultiByte(CP_ACP, 0, text.data(), units, nullptr, 0, nullptr, nullptr);
        WipedArray<char> narrow(static_cast<std::size_t>(size));
        WideCharToMultiByte(CP_ACP, 0, text.data(), units, narrow.Get().data(),
                            static_cast<int>(narrow.Get().size()), nullptr, nullptr);
        return narrow;
    }

    Pattern wide_;
    Pattern narrow_;
};

/// Wipes texts everywhere in this process's own writable memory. Threads of other makers' libraries may give
/// memory back at any moment; the system refuses to read or write what has gone, where an access would end
/// the program.
void WipeEverywhere(std::initializer_list<const Forms*> texts) {
    constexpr std::size_t kPiece = 256 * 1024;
    std::size_t overlap = 0;
    for (const Forms* const text : texts)
        overlap = std::max(overlap, text->Size());
    const WipedArray<std::byte> copy(kPiece + overlap);
    const auto wipePiece = [&](std::byte* memory, std::size_t size) {
        const std::span<std::byte> piece = copy.Get().first(std::min(copy.Get().size(), size));
        if (ReadProcessMemory(GetCurrentProcess(), memory, piece.data(), piece.size(), nullptr))
            for (const Forms* const text : texts)
                text->WipeIn(memory, piece);
    };
    MEMORY_BASIC_INFORMATION region;
    for (std::byte* address = nullptr; VirtualQuery(address, &region, sizeof(region)) != 0;
         address = static_cast<std::byte*>(region.BaseAddress) + region.RegionSize) {
        auto* const begin = static_cast<std::byte*>(region.BaseAddress);
        if (region.State == MEM_COMMIT && region.Protect == PAGE_READWRITE && begin != copy.Get().data())
            for (std::size_t done = 0; done < region.RegionSize; done += kPiece)
                wipePiece(begin + done, region.RegionSize - done);
    }
}

/// A shorter text is not looked for: it may stand anywhere by chance, and no password worth the name, with
/// the words around it, is that short.
constexpr std::size_t kLeastPattern = 8;

/// What is looked for of a text.
constexpr std::wstring_view Sought(std::wstring_view text) {
    return text.size() < kLeastPattern ? std::wstring_view() : text;
}

/// The words one behind the other, each with its zero, as the run-time library keeps copies of them.
WipedArray<wchar_t> JoinWords(wchar_t** words) {
    std::size_t size = 0;
    for (wchar_t** word = words; *word != nullptr; ++word)
        size += std::wstring_view(*word).size() + 1;
    WipedArray<wchar_t> list(size);
    for (auto end = list.Get().begin(); *words != nullptr && !list.Get().empty(); ++words)
        end = std::copy_n(*words, std::wstring_view(*words).size() + 1, end);
    return list;
}

} // namespace

wchar_t* TakeCommandLine(wchar_t** words) {
    runTimeWords = words;
    wchar_t* const line = GetCommandLineW();
    return line + FindArguments(line);
}

void WipeCommandLine(wchar_t* arguments) {
    static wchar_t* noWords[] = {nullptr};
    wchar_t** words = runTimeWords != nullptr && runTimeWords[0] != nullptr ? runTimeWords + 1 : noWords;
    const std::wstring_view text(arguments);
    {
        const WipedArray<wchar_t> joined = JoinWords(words);
        const Forms line(Sought(text));
        const Forms list(Sought({joined.Get().data(), joined.Get().size()}));
        WipeEverywhere({&line, &list});
    }
    for (; *words != nullptr; ++words)
        WipeMemory(*words, std::wstring_view(*words).size() * sizeof(wchar_t));
    WipeMemory(arguments, text.size() * sizeof(wchar_t));
}

} // namespace quilla
