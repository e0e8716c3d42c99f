#pragma once

#include <utility>
#include <windows.h>

namespace quilla {

/// Owner of one platform handle. Traits give the handle's type, its empty value and how it is closed. Closing
/// keeps the thread's last error, so that a failure can still be reported after the clean-up.
template <typename Traits>
class UniqueHandle {
  public:
    using Type = typename Traits::Type;

    UniqueHandle() = default;
    explicit UniqueHandle(Type handle) : handle_(handle) {}
    ~UniqueHandle() { Reset(); }
    UniqueHandle(UniqueHandle&& other) noexcept : handle_(other.Release()) {}
    UniqueHandle& operator=(UniqueHandle&& other) noexcept {
        if (this != &other)
            Reset(other.Release());
        return *this;
    }
    UniqueHandle(const UniqueHandle&) = delete;
    UniqueHandle& operator=(const UniqueHandle&) = delete;

    [[nodiscard]] Type Get() const { return handle_; }
    [[nodiscard]] bool IsValid() const { return handle_ != Traits::Empty(); }
    explicit operator bool() const { return IsValid(); }

    /// Gives the handle up without closing it.
    [[nodiscard]] Type Release() { return std::exchange(handle_, Traits::Empty()); }

    /// Closes what is held and takes another handle.
    void Reset(Type handle = Traits::Empty()) {
        const Type old = std::exchange(handle_, handle);
        if (old != Traits::Empty()) {
            const DWORD error = GetLastError();
            Traits::Close(old);
            SetLastError(error);
        }
    }

  private:
    Type handle_ = Traits::Empty();
};

/// Kernel objects whose empty value is null: events, mutexes, mappings, processes, threads.
struct KernelHandleTraits {
    using Type = HANDLE;
    static Type Empty() { return nullptr; }
    static void Close(Type handle) { CloseHandle(handle); }
};

/// Files and devices, whose empty value is INVALID_HANDLE_VALUE.
struct FileHandleTraits {
    using Type = HANDLE;
    static Type Empty() { return INVALID_HANDLE_VALUE; }
    static void Close(Type handle) { CloseHandle(handle); }
};

struct RegistryKeyTraits {
    using Type = HKEY;
    static Type Empty() { return nullptr; }
    static void Close(Type handle) { RegCloseKey(handle); }
};

struct LibraryTraits {
    using Type = HMODULE;
    static Type Empty() { return nullptr; }
    static void Close(Type handle) { FreeLibrary(handle); }
};

/// The address of a mapped view of a file mapping.
struct MappedViewTraits {
    using Type = void*;
    static Type Empty() { return nullptr; }
    static void Close(Type view) { UnmapViewOfFile(view); }
};

using UniqueEvent = UniqueHandle<KernelHandleTraits>;
using UniqueMutex = UniqueHandle<KernelHandleTraits>;
using UniqueMapping = UniqueHandle<KernelHandleTraits>;
using UniqueProcess = UniqueHandle<KernelHandleTraits>;
using UniqueThread = UniqueHandle<KernelHandleTraits>;
using UniqueFile = UniqueHandle<FileHandleTraits>;
using UniqueRegistryKey = UniqueHandle<RegistryKeyTraits>;
using UniqueLibrary = UniqueHandle<LibraryTraits>;
using UniqueView = UniqueHandle<MappedViewTraits>;

} // namespace quilla
