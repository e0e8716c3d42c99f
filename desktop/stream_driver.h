#pragma once

#include "platform/win32/handle.h"

#include <cstdint>

namespace quilla {

/// A loaded stream driver: a library with the entry points Init, Deinit, Open, Close and IOControl behind a
/// three-letter prefix ("SEC_Init"). A driver's own handles are pointer-sized and zero means failure.
class StreamDriver {
  public:
    StreamDriver() = default;
    ~StreamDriver() { Unload(); }
    StreamDriver(const StreamDriver&) = delete;
    StreamDriver& operator=(const StreamDriver&) = delete;

    /// Loads the library from its full path and starts the driver with a context. False, with nothing left
    /// loaded, when the library or an entry point is missing or the driver refuses.
    [[nodiscard]] bool Load(const wchar_t* library, const wchar_t* prefix, std::uintptr_t context);

    /// Stops the driver and unloads the library.
    void Unload();

    /// Loads a driver's library without starting the driver. What the library itself links is looked for in
    /// the system's folder only.
    [[nodiscard]] static UniqueLibrary LoadFile(const wchar_t* library);

    [[nodiscard]] std::uintptr_t Open(DWORD access, DWORD sharing) const;
    void Close(std::uintptr_t open) const;
    [[nodiscard]] bool Control(std::uintptr_t open, DWORD code, void* input, DWORD inputSize,
                               void* output = nullptr, DWORD outputSize = 0, DWORD* returned = nullptr) const;

  private:
    /// The entry points, in the signatures of the stream driver interface with pointer-sized handles.
    struct EntryPoints {
        std::uintptr_t (*init)(std::uintptr_t context);
        BOOL (*deinit)(std::uintptr_t device);
        std::uintptr_t (*open)(std::uintptr_t device, DWORD access, DWORD sharing);
        BOOL (*close)(std::uintptr_t open);
        BOOL(*control)
        (std::uintptr_t open, DWORD code, BYTE* input, DWORD inputSize, BYTE* output, DWORD outputSize,
         DWORD* returned);
    };

    [[nodiscard]] bool Resolve(const wchar_t* prefix);

    UniqueLibrary library_;
    EntryPoints call_{};
    std::uintptr_t device_ = 0;
};

} // namespace quilla
