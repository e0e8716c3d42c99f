// Where a process keeps its command line, and how all of these copies are found and wiped.

#include "desktop/command_line_memory.h"

#include "platform/wipe.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <new>
#include <span>
#include <string_view>
#include <windows.h>

namespace quilla {

namespace {

/// What TakeCommandLine was given: the program's name and the arguments, null at the end.
wchar_t** runTimeWords = nullptr;

/// Where the arguments start in a command line.
std::size_t FindArguments(std::wstring_view line) {
    const bool isQuoted = line.starts_with(L'"');
    const std::size_t end = std::min(line.find(isQuoted ? L'"' : L' ', 1), line.size());
    return std::min(line.find_first_not_of(L' ', end + isQuoted), line.size());
}

/// A text to look for, kept inverted so that the search does not find its own copy.
class Pattern {
  public:
    explicit Pattern(std::span<const std::byte> text)
        : inverted_(new (std::nothrow) std::byte[text.size()]), size_(inverted_ ? text.size() : 0) {
        std::ranges::transform(text.first(size_), inverted_.get(), [](std::byte value) { return ~value; });
    }

    ~Pattern() { WipeMemory(inverted_.get(), size_); }
    Pattern(const Pattern&) = delete;
    Pattern& operator=(const Pattern&) = delete;

    /// Overwrites the text wherever it stands in a stretch of memory.
    void WipeIn(std::span<std::byte> memory) const {
        const auto isSame = [](std::byte value, std::byte inverted) { return value == ~inverted; };
        const std::span<const std::byte> wanted(inverted_.get(), size_);
        for (auto found = memory.begin(); size_ != 0; found += static_cast<std::ptrdiff_t>(size_)) {
            found = std::search(found, memory.end(), wanted.begin(), wanted.end(), isSame);
            if (found == memory.end())
                return;
            WipeMemory(&*found, size_);
        }
    }

  private:
    std::unique_ptr<std::byte[]> inverted_;
    std::size_t size_;
};

/// Wipes a text everywhere in this process's own writable memory.
void WipeEverywhere(std::span<const std::byte> text) {
    const Pattern pattern(text);
    MEMORY_BASIC_INFORMATION region;
    for (std::byte* address = nullptr; VirtualQuery(address, &region, sizeof(region)) != 0;
         address = static_cast<std::byte*>(region.BaseAddress) + region.RegionSize)
        if (region.State == MEM_COMMIT && region.Protect == PAGE_READWRITE)
            pattern.WipeIn({static_cast<std::byte*>(region.BaseAddress), region.RegionSize});
}

/// A shorter text is not looked for: it may stand anywhere by chance, and no password worth the name, with
/// the words around it, is that short.
constexpr std::size_t kLeastPattern = 8;

/// Wipes a text, zeros inside it included, in its wide and its narrow form.
void WipeBothForms(std::wstring_view text) {
    if (text.size() < kLeastPattern)
        return;
    const int wideSize = static_cast<int>(text.size());
    const int size = WideCharToMultiByte(CP_ACP, 0, text.data(), wideSize, nullptr, 0, nullptr, nullptr);
    const std::unique_ptr<char[]> narrow(new (std::nothrow) char[static_cast<std::size_t>(size)]);
    if (narrow && size > 0) {
        WideCharToMultiByte(CP_ACP, 0, text.data(), wideSize, narrow.get(), size, nullptr, nullptr);
        WipeEverywhere(std::as_bytes(std::span(narrow.get(), static_cast<std::size_t>(size))));
    }
    WipeEverywhere(std::as_bytes(std::span(text)));
}

/// Wipes the words themselves and the copies that stand one behind the other.
void WipeWords(wchar_t** words) {
    std::size_t size = 0;
    for (wchar_t** word = words; *word != nullptr; ++word)
        size += std::wstring_view(*word).size() + 1;
    const std::unique_ptr<wchar_t[]> list(new (std::nothrow) wchar_t[size]);
    wchar_t* end = list.get();
    for (; *words != nullptr; ++words) {
        const std::wstring_view word(*words);
        if (list)
            end = std::copy_n(word.data(), word.size() + 1, end);
        WipeMemory(*words, word.size() * sizeof(wchar_t));
    }
    if (list && size > 0)
        WipeBothForms({list.get(), size});
}

} // namespace

wchar_t* TakeCommandLine(wchar_t** words) {
    runTimeWords = words;
    wchar_t* const line = GetCommandLineW();
    return line + FindArguments(line);
}

void WipeCommandLine(wchar_t* arguments) {
    const std::wstring_view text(arguments);
    if (runTimeWords != nullptr && runTimeWords[0] != nullptr)
        WipeWords(runTimeWords + 1);
    WipeBothForms(text);
    WipeMemory(arguments, text.size() * sizeof(wchar_t));
}

} // namespace quilla
