#include "platform/file_name.h"

#include "platform/win32/handle.h"

#include <cwchar>
#include <windows.h>

namespace quilla {

namespace {

/// Copies the access list where the file system has one.
bool CopyPermissions(const wchar_t* from, const wchar_t* to) {
    alignas(SECURITY_DESCRIPTOR) std::byte descriptor[4096];
    DWORD size = 0;
    if (!GetFileSecurityW(from, DACL_SECURITY_INFORMATION, descriptor, sizeof(descriptor), &size))
        return GetLastError() == ERROR_NOT_SUPPORTED || GetLastError() == ERROR_CALL_NOT_IMPLEMENTED;
    return SetFileSecurityW(to, DACL_SECURITY_INFORMATION, descriptor) != FALSE;
}

bool CopyAttributes(const wchar_t* from, const wchar_t* to) {
    const DWORD attributes = GetFileAttributesW(from);
    return attributes != INVALID_FILE_ATTRIBUTES && SetFileAttributesW(to, attributes);
}

} // namespace

/// Under Wine, too, a name may be a link. What cannot be asked for its own name keeps the one it was given.
bool ResolvePath(const PathUnit* path, std::span<PathUnit> resolved) {
    const UniqueFile file(CreateFileW(path, 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    const auto size = static_cast<DWORD>(resolved.size());
    const DWORD units = file ? GetFinalPathNameByHandleW(file.Get(), resolved.data(), size, 0) : 0;
    if (units > 0 && units < size)
        return true;
    const std::size_t length = std::wcslen(path);
    if (length >= resolved.size()) {
        SetLastError(ERROR_FILENAME_EXCED_RANGE);
        return false;
    }
    std::wmemcpy(resolved.data(), path, length + 1);
    return true;
}

bool CopyFileProperties(const PathUnit* from, const PathUnit* to) {
    return CopyAttributes(from, to) && CopyPermissions(from, to);
}

bool RenameOver(const PathUnit* from, const PathUnit* to) {
    return MoveFileExW(from, to, MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != FALSE;
}

} // namespace quilla
