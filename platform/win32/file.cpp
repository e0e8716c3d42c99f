#include "platform/file.h"

#include "platform/win32/handle.h"

#include <algorithm>
#include <utility>
#include <windows.h>
#include <winternl.h>

// Documented (Windows Driver Kit, ZwReadFile and ZwWriteFile) but not declared by every SDK's winternl.h.
extern "C" NTSTATUS NTAPI NtReadFile(HANDLE file, HANDLE event, PIO_APC_ROUTINE routine, PVOID context,
                                     PIO_STATUS_BLOCK result, PVOID buffer, ULONG length,
                                     PLARGE_INTEGER position, PULONG key);
extern "C" NTSTATUS NTAPI NtWriteFile(HANDLE file, HANDLE event, PIO_APC_ROUTINE routine, PVOID context,
                                      PIO_STATUS_BLOCK result, PVOID buffer, ULONG length,
                                      PLARGE_INTEGER position, PULONG key);

namespace quilla {

namespace {

constexpr DWORD kLargestTransfer = 1U << 30;

DWORD AccessRights(FileAccess access) {
    constexpr DWORD kRights[] = {GENERIC_READ, GENERIC_WRITE, GENERIC_READ | GENERIC_WRITE};
    return kRights[static_cast<unsigned>(access)];
}

/// NtReadFile or NtWriteFile.
using NativeTransfer = decltype(&NtReadFile);

/// One synchronous transfer at a position, which needs no file pointer, so that threads do not disturb one
/// another. The native call behind ReadFile and WriteFile is made directly: for a position those pass their
/// OVERLAPPED on as the context of a completion, which costs a round trip to the server process under Wine.
/// On failure the last error is set and the count is 0.
bool TransferAt(NativeTransfer transfer, HANDLE file, std::uint64_t position, void* buffer, std::size_t size,
                std::size_t& count) {
    IO_STATUS_BLOCK result{};
    LARGE_INTEGER where{};
    where.QuadPart = static_cast<LONGLONG>(position);
    const auto length = static_cast<ULONG>(std::min<std::size_t>(size, kLargestTransfer));
    const NTSTATUS status =
        transfer(file, nullptr, nullptr, nullptr, &result, buffer, length, &where, nullptr);
    count = NT_SUCCESS(status) ? result.Information : 0;
    if (!NT_SUCCESS(status))
        SetLastError(RtlNtStatusToDosError(status));
    return NT_SUCCESS(status);
}

/// What a name leads to; the file may be open elsewhere, however exclusively.
bool DescribeFile(const wchar_t* path, BY_HANDLE_FILE_INFORMATION& description) {
    const UniqueFile file(CreateFileW(path, FILE_READ_ATTRIBUTES,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                      OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    return file && GetFileInformationByHandle(file.Get(), &description);
}

/// Windows keeps the sharing of an open file for everybody; Wine keeps it among the programs of one prefix
/// only. A lock on a byte far behind every end of file reaches further there: Wine takes it as a record lock
/// (fcntl) of the host, where native programs and other prefixes meet it. A file system that knows no locks
/// refuses with another error and is served without.
bool LockForHost(HANDLE file) {
    OVERLAPPED where{};
    where.OffsetHigh = 1U << 30;
    return LockFileEx(file, LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY, 0, 1, 0, &where) ||
           GetLastError() != ERROR_LOCK_VIOLATION;
}

} // namespace

File File::Open(const PathUnit* path, FileAccess access, FileSharing sharing, FileCreation creation) {
    File file;
    file.handle_ = CreateFileW(path, AccessRights(access), sharing == FileSharing::Read ? FILE_SHARE_READ : 0,
                               nullptr, creation == FileCreation::CreateNew ? CREATE_NEW : OPEN_EXISTING,
                               FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file.IsOpen() && sharing == FileSharing::None && !LockForHost(file.handle_)) {
        file.Close();
        SetLastError(ERROR_SHARING_VIOLATION);
    }
    return file;
}

/// Marked for deletion from the start; the mark is taken off again when it is kept.
File File::CreateTransient(const PathUnit* path) {
    File file;
    file.handle_ =
        CreateFileW(path, GENERIC_WRITE | DELETE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    FILE_DISPOSITION_INFO disposition{};
    disposition.DeleteFile = TRUE;
    if (file.IsOpen()) // without the mark it serves still
        SetFileInformationByHandle(file.handle_, FileDispositionInfo, &disposition, sizeof(disposition));
    return file;
}

bool File::Keep(const PathUnit* /*path*/) const {
    FILE_DISPOSITION_INFO disposition{};
    return SetFileInformationByHandle(handle_, FileDispositionInfo, &disposition, sizeof(disposition)) !=
           FALSE;
}

void File::Remove(const PathUnit* path) {
    const DWORD error = GetLastError();
    DeleteFileW(path);
    SetLastError(error);
}

bool File::IsSameFile(const PathUnit* one, const PathUnit* other) {
    BY_HANDLE_FILE_INFORMATION first{};
    BY_HANDLE_FILE_INFORMATION second{};
    return DescribeFile(one, first) && DescribeFile(other, second) &&
           first.dwVolumeSerialNumber == second.dwVolumeSerialNumber &&
           first.nFileIndexHigh == second.nFileIndexHigh && first.nFileIndexLow == second.nFileIndexLow;
}

void File::Close() {
    if (IsOpen()) {
        const DWORD error = GetLastError();
        CloseHandle(std::exchange(handle_, kNone));
        SetLastError(error);
    }
}

Transfer File::ReadAt(std::uint64_t position, std::span<std::byte> buffer) const {
    std::size_t done = 0;
    while (done < buffer.size()) {
        std::size_t count = 0;
        if (!TransferAt(NtReadFile, handle_, position + done, buffer.data() + done, buffer.size() - done,
                        count) &&
            GetLastError() != ERROR_HANDLE_EOF)
            return {.succeeded = false, .bytes = done};
        if (count == 0) { // the end of the file is no failure; a read by file pointer would set no error
            SetLastError(ERROR_SUCCESS);
            break;
        }
        done += count;
    }
    return {.succeeded = true, .bytes = done};
}

Transfer File::WriteAt(std::uint64_t position, std::span<const std::byte> buffer) const {
    std::size_t done = 0;
    while (done < buffer.size()) {
        std::size_t count = 0;
        void* const from = const_cast<std::byte*>(buffer.data()) + done;
        if (!TransferAt(NtWriteFile, handle_, position + done, from, buffer.size() - done, count) ||
            count == 0)
            return {.succeeded = false, .bytes = done};
        done += count;
    }
    return {.succeeded = true, .bytes = done};
}

bool File::GetSize(std::uint64_t& size) const {
    LARGE_INTEGER value{};
    const bool known = GetFileSizeEx(handle_, &value) != FALSE;
    size = known ? static_cast<std::uint64_t>(value.QuadPart) : 0;
    return known;
}

bool File::IsIntact(std::uint64_t size) const {
    FILE_STANDARD_INFO info{};
    return GetFileInformationByHandleEx(handle_, FileStandardInfo, &info, sizeof(info)) &&
           info.NumberOfLinks > 0 && !info.DeletePending &&
           static_cast<std::uint64_t>(info.EndOfFile.QuadPart) >= size;
}

bool File::SetSize(std::uint64_t size) const {
    LARGE_INTEGER position{};
    position.QuadPart = static_cast<LONGLONG>(size);
    return SetFilePointerEx(handle_, position, nullptr, FILE_BEGIN) && SetEndOfFile(handle_);
}

bool File::Flush() const {
    return FlushFileBuffers(handle_) != FALSE;
}

} // namespace quilla
