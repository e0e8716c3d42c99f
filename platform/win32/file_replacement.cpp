#include "platform/file_replacement.h"

#include <cstddef>
#include <cwchar>
#include <iterator>
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

FileReplacement::FileReplacement(const PathUnit* path, File& old) : old_(old) {
    constexpr wchar_t kSuffix[] = L".quilla-new";
    const std::size_t length = std::wcslen(path);
    if (length + std::size(kSuffix) > kLongestPath) {
        SetLastError(ERROR_FILENAME_EXCED_RANGE);
        return;
    }
    std::wmemcpy(path_, path, length);
    std::wmemcpy(newPath_, path, length);
    std::wmemcpy(newPath_ + length, kSuffix, std::size(kSuffix));
    DeleteFileW(newPath_);
    new_ = File::Open(newPath_, FileAccess::Write, FileSharing::None, FileCreation::CreateNew);
    isBeside_ = new_.IsOpen();
    if (isBeside_ && !(CopyAttributes(path_, newPath_) && CopyPermissions(path_, newPath_)))
        new_.Close();
}

FileReplacement::~FileReplacement() {
    new_.Close();
    if (isBeside_)
        File::Remove(newPath_);
}

bool FileReplacement::PutInPlace() {
    if (!new_.Flush())
        return false;
    new_.Close();
    old_.Close(); // the system replaces no open file
    if (!MoveFileExW(newPath_, path_, MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
        return false;
    isBeside_ = false;
    return true;
}

} // namespace quilla
