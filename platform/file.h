#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>

namespace quilla {

#ifdef _WIN32
using PathUnit = wchar_t;
#else
using PathUnit = char;
#endif

/// What a file is opened for.
enum class FileAccess : std::uint8_t { Read, Write, ReadWrite };

/// What others may do with the file while it is open here.
enum class FileSharing : std::uint8_t { None, Read };

/// Whether the file must exist already or must not.
enum class FileCreation : std::uint8_t { OpenExisting, CreateNew };

/// Outcome of a transfer: whether the system reported success, and how many bytes moved. A read that meets
/// the end of the file succeeds with fewer bytes than asked for.
struct Transfer {
    bool succeeded = false;
    std::size_t bytes = 0;
};

/// An open file, read and written at explicit 64-bit positions; transfers of several threads do not disturb
/// one another. After a failure the platform's last error is the one of the call that failed.
class File {
  public:
    File() = default;
    ~File() { Close(); }
    File(File&& other) noexcept : handle_(std::exchange(other.handle_, kNone)) {}
    File& operator=(File&& other) noexcept {
        if (this != &other) {
            Close();
            handle_ = std::exchange(other.handle_, kNone);
        }
        return *this;
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    /// Opens or creates a file; the result is not open on failure.
    [[nodiscard]] static File Open(const PathUnit* path, FileAccess access, FileSharing sharing,
                                   FileCreation creation);

    /// Creates a file that this process has alone, and that goes away with this object or the process unless
    /// it is kept. Where the system or the disk has no such files it stays until it is removed.
    [[nodiscard]] static File CreateTransient(const PathUnit* path);

    /// Lets a file that was created so stay, under the path that it was created with.
    [[nodiscard]] bool Keep(const PathUnit* path) const;

    /// Deletes a file by its name, if it can be; keeps the platform's last error.
    static void Remove(const PathUnit* path);

    /// Whether two names lead to one file; false if either leads to none.
    [[nodiscard]] static bool IsSameFile(const PathUnit* one, const PathUnit* other);

    [[nodiscard]] bool IsOpen() const { return handle_ != kNone; }
    void Close();

    /// Reads up to buffer.size() bytes at the position; retries until the buffer is full, the file ends or a
    /// read fails.
    [[nodiscard]] Transfer ReadAt(std::uint64_t position, std::span<std::byte> buffer) const;

    /// Writes buffer.size() bytes at the position; fewer bytes mean a failure (for example a full disk).
    [[nodiscard]] Transfer WriteAt(std::uint64_t position, std::span<const std::byte> buffer) const;

    /// Size in bytes; false if the system cannot tell.
    [[nodiscard]] bool GetSize(std::uint64_t& size) const;

    /// Whether the file still has a name and at least this size, so that what is written below it will be
    /// found again.
    [[nodiscard]] bool IsIntact(std::uint64_t size) const;

    /// Cuts or extends the file to a size; the new area reads as zeros or as whatever the platform leaves
    /// there.
    [[nodiscard]] bool SetSize(std::uint64_t size) const;

    /// Waits until everything written is on the medium.
    [[nodiscard]] bool Flush() const;

  private:
#ifdef _WIN32
    using Handle = void*;
    static inline const Handle kNone = reinterpret_cast<Handle>(static_cast<std::intptr_t>(-1));
#else
    using Handle = int;
    static constexpr Handle kNone = -1;
#endif
    Handle handle_ = kNone;
};

} // namespace quilla
