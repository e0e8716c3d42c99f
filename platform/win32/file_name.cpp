#include "platform/file_name.h"

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

/// A name here is the file's own.
bool ResolvePath(const PathUnit* path, std::span<PathUnit> resolved) {
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
