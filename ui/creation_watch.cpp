#include "ui/creation_watch.h"

#include "platform/error_box.h"
#include "platform/win32/format_text.h"
#include "platform/win32/handle.h"

#include <windows.h>

namespace quilla {

namespace {

bool Exists(const wchar_t* path) {
    return GetFileAttributesW(path) != INVALID_FILE_ATTRIBUTES;
}

/// Why no file can be created, by trying it without a size. If that works, the size was too much.
DWORD FindCause(const wchar_t* path) {
    const UniqueFile probe(CreateFileW(path, GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                       FILE_ATTRIBUTE_NORMAL | FILE_FLAG_DELETE_ON_CLOSE, nullptr));
    return probe ? ERROR_DISK_FULL : GetLastError();
}

} // namespace

void CreationWatch::Begin(const VolumeRecord& record) {
    hadVolume_ = Exists(record.Path);
    hadKeyFile_ = Exists(record.KeyPath);
}

void CreationWatch::End(const VolumeRecord& record) {
    isVolumeMade_ = !hadVolume_ && Exists(record.Path);
    isKeyFileMade_ = record.Cipher != CipherId::None && !hadKeyFile_ && Exists(record.KeyPath);
    if (isKeyFileMade_ && !isVolumeMade_)
        DeleteFileW(record.KeyPath);
}

void CreationWatch::TakeBack(const VolumeRecord& record) {
    if (isVolumeMade_)
        DeleteFileW(record.Path);
    if (isKeyFileMade_)
        DeleteFileW(record.KeyPath);
    isVolumeMade_ = isKeyFileMade_ = false;
}

void CreationWatch::ShowFailure(const VolumeRecord& record) const {
    if (record.Cipher != CipherId::None && !isKeyFileMade_)
        return;
    if (record.Path[0] == 0) {
        ShowError(L"The volume has no file name");
        return;
    }
    wchar_t text[kPathUnits + 32];
    FormatText(text, L"Cannot create file %ls", record.Path);
    SetLastError(hadVolume_ ? DWORD{ERROR_FILE_EXISTS} : FindCause(record.Path));
    CheckResultWithSystemError(false, text);
}

} // namespace quilla
