#include "platform/file.h"

#include <algorithm>
#include <utility>
#include <windows.h>

namespace quilla {

namespace {

constexpr DWORD kLargestTransfer = 1U << 30;

DWORD AccessRights(FileAccess access) {
    constexpr DWORD kRights[] = {GENERIC_READ, GENERIC_WRITE, GENERIC_READ | GENERIC_WRITE};
    return kRights[static_cast<unsigned>(access)];
}

/// A synchronous transfer at a position needs no file pointer, so threads do not disturb one another.
OVERLAPPED At(std::uint64_t position) {
    OVERLAPPED where{};
    where.Offset = static_cast<DWORD>(position);
    where.OffsetHigh = static_cast<DWORD>(position >> 32);
    return where;
}

} // namespace

File& File::operator=(File&& other) noexcept {
    if (this != &other) {
        Close();
        handle_ = std::exchange(other.handle_, kNone);
    }
    return *this;
}

File File::Open(const PathUnit* path, FileAccess access, FileSharing sharing, FileCreation creation) {
    File file;
    file.handle_ = CreateFileW(path, AccessRights(access), sharing == FileSharing::Read ? FILE_SHARE_READ : 0,
                               nullptr, creation == FileCreation::CreateNew ? CREATE_NEW : OPEN_EXISTING,
                               FILE_ATTRIBUTE_NORMAL, nullptr);
    return file;
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
        OVERLAPPED where = At(position + done);
        DWORD count = 0;
        const auto want = static_cast<DWORD>(std::min<std::size_t>(buffer.size() - done, kLargestTransfer));
        if (!ReadFile(handle_, buffer.data() + done, want, &count, &where) &&
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
        OVERLAPPED where = At(position + done);
        DWORD count = 0;
        const auto want = static_cast<DWORD>(std::min<std::size_t>(buffer.size() - done, kLargestTransfer));
        if (!WriteFile(handle_, buffer.data() + done, want, &count, &where) || count == 0)
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
