#include "platform/file_replacement.h"

#include <cstddef>
#include <cwchar>
#include <iterator>
#include <windows.h>

// The system's own, not declared by every SDK: removes the first file and gives its name to the second.
extern "C" BOOL DeleteAndRenameFile(const wchar_t* replaced, const wchar_t* replacement);

namespace quilla {

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
    const DWORD attributes = GetFileAttributesW(path_);
    if (isBeside_ && !(attributes != INVALID_FILE_ATTRIBUTES && SetFileAttributesW(newPath_, attributes)))
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
    old_.Close();
    if (!DeleteAndRenameFile(path_, newPath_))
        return false;
    isBeside_ = false;
    return true;
}

} // namespace quilla
