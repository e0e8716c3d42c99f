// The system reads and writes at a file pointer only, so each open file has a lock that keeps the pointer in
// its place for a transfer.

#include "platform/file.h"

#include "platform/thread.h"
#include "platform/win32/handle.h"

#include <algorithm>
#include <cwchar>
#include <memory>
#include <new>
#include <utility>
#include <windows.h>

namespace quilla {

namespace {

constexpr DWORD kLargestTransfer = 1U << 30;

struct OpenFile {
    UniqueFile file;
    Lock pointer;
};

OpenFile& From(void* handle) {
    return *static_cast<OpenFile*>(handle);
}

DWORD AccessRights(FileAccess access) {
    constexpr DWORD kRights[] = {GENERIC_READ, GENERIC_WRITE, GENERIC_READ | GENERIC_WRITE};
    return kRights[static_cast<unsigned>(access)];
}

/// All ones are a position, too: only the last error tells it from a failure.
bool MovePointer(HANDLE file, std::uint64_t position) {
    LONG high = static_cast<LONG>(position >> 32);
    const auto low = static_cast<LONG>(position & 0xFFFFFFFFU);
    SetLastError(ERROR_SUCCESS);
    return SetFilePointer(file, low, &high, FILE_BEGIN) != INVALID_SET_FILE_POINTER ||
           GetLastError() == ERROR_SUCCESS;
}

/// Moves a whole range at a position, in as many transfers as it takes; stops at one that moves nothing.
template <typename Move>
Transfer MoveRange(OpenFile& open, std::uint64_t position, std::size_t size, Move move) {
    const LockGuard guard(open.pointer);
    std::size_t done = 0;
    bool succeeded = MovePointer(open.file.Get(), position);
    while (succeeded && done < size) {
        DWORD count = 0;
        succeeded =
            move(done, static_cast<DWORD>(std::min<std::size_t>(size - done, kLargestTransfer)), count);
        if (count == 0)
            break;
        done += count;
    }
    return {.succeeded = succeeded, .bytes = done};
}

bool DescribeFile(const wchar_t* path, BY_HANDLE_FILE_INFORMATION& description) {
    const UniqueFile file(CreateFileW(path, 0, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
    return file && GetFileInformationByHandle(file.Get(), &description);
}

} // namespace

File File::Open(const PathUnit* path, FileAccess access, FileSharing sharing, FileCreation creation) {
    File file;
    std::unique_ptr<OpenFile> open(new (std::nothrow) OpenFile);
    if (!open) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return file;
    }
    open->file.Reset(CreateFileW(
        path, AccessRights(access), sharing == FileSharing::Read ? FILE_SHARE_READ : 0, nullptr,
        creation == FileCreation::CreateNew ? CREATE_NEW : OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (open->file)
        file.handle_ = open.release();
    return file;
}

void File::Remove(const PathUnit* path) {
    const DWORD error = GetLastError();
    DeleteFileW(path);
    SetLastError(error);
}

/// A file system without numbers for its files says zero for all of them; then equal names have to do.
bool File::IsSameFile(const PathUnit* one, const PathUnit* other) {
    BY_HANDLE_FILE_INFORMATION first{};
    BY_HANDLE_FILE_INFORMATION second{};
    if (!DescribeFile(one, first) || !DescribeFile(other, second) ||
        first.dwVolumeSerialNumber != second.dwVolumeSerialNumber ||
        first.nFileIndexHigh != second.nFileIndexHigh || first.nFileIndexLow != second.nFileIndexLow)
        return false;
    return (first.nFileIndexHigh | first.nFileIndexLow) != 0 || _wcsicmp(one, other) == 0;
}

void File::Close() {
    if (IsOpen()) {
        const DWORD error = GetLastError();
        delete static_cast<OpenFile*>(std::exchange(handle_, kNone));
        SetLastError(error);
    }
}

Transfer File::ReadAt(std::uint64_t position, std::span<std::byte> buffer) const {
    OpenFile& open = From(handle_);
    return MoveRange(open, position, buffer.size(), [&](std::size_t at, DWORD size, DWORD& count) {
        return ReadFile(open.file.Get(), buffer.data() + at, size, &count, nullptr) != FALSE;
    });
}

Transfer File::WriteAt(std::uint64_t position, std::span<const std::byte> buffer) const {
    OpenFile& open = From(handle_);
    return MoveRange(open, position, buffer.size(), [&](std::size_t at, DWORD size, DWORD& count) {
        return WriteFile(open.file.Get(), buffer.data() + at, size, &count, nullptr) != FALSE && count > 0;
    });
}

bool File::GetSize(std::uint64_t& size) const {
    DWORD high = 0;
    SetLastError(ERROR_SUCCESS);
    const DWORD low = GetFileSize(From(handle_).file.Get(), &high);
    const bool known = low != INVALID_FILE_SIZE || GetLastError() == ERROR_SUCCESS;
    size = known ? static_cast<std::uint64_t>(high) << 32 | low : 0;
    return known;
}

/// A file that is open cannot be deleted there; it goes with its card, and then its handle tells.
bool File::IsIntact(std::uint64_t size) const {
    std::uint64_t current = 0;
    return GetSize(current) && current >= size;
}

bool File::SetSize(std::uint64_t size) const {
    OpenFile& open = From(handle_);
    const LockGuard guard(open.pointer);
    return MovePointer(open.file.Get(), size) && SetEndOfFile(open.file.Get());
}

bool File::Flush() const {
    return FlushFileBuffers(From(handle_).file.Get()) != FALSE;
}

} // namespace quilla
