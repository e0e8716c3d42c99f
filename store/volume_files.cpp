#include "store/volume_files.h"

#include "platform/error_box.h"
#include "store/record_path.h"
#include "volume/data_file.h"

#include <windows.h>

namespace quilla {

namespace {

/// How each outcome is reported: the text before the path, and whether the system's description follows.
struct StatusText {
    KeyFileStatus status;
    const wchar_t* text;
    bool systemError;
};
constexpr StatusText kStatusTexts[] = {
    {KeyFileStatus::CannotCreate, L"Cannot create file ", true},
    {KeyFileStatus::CannotOpen, L"Cannot open file ", true},
    {KeyFileStatus::CannotRead, L"Cannot read from file ", true},
    {KeyFileStatus::CannotWrite, L"Cannot write to file ", true},
    {KeyFileStatus::UnknownFormat, L"Unknown data format in file ", false},
    {KeyFileStatus::NoMemory, L"There is not enough memory for the password of file ", false},
};

/// The size as the directory knows it: that of a mounted volume, whose file the driver shares with nobody.
std::uint64_t DirectorySize(const wchar_t* path) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (!GetFileAttributesExW(path, GetFileExInfoStandard, &data) ||
        (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
        return 0;
    return (std::uint64_t{data.nFileSizeHigh} << 32) | data.nFileSizeLow;
}

std::uint64_t VolumeFileSize(const wchar_t* path) {
    const File file = File::Open(path, FileAccess::Read, FileSharing::Read, FileCreation::OpenExisting);
    std::uint64_t size = 0;
    if (file.IsOpen())
        static_cast<void>(file.GetSize(size)); // 0 when the system cannot tell
    else if (GetLastError() == ERROR_SHARING_VIOLATION)
        size = DirectorySize(path);
    return size;
}

} // namespace

// Nothing between the failed call and here changes the thread's last error.
bool ReportKeyFile(KeyFileStatus status, const wchar_t* path) {
    for (const StatusText& entry : kStatusTexts) {
        if (entry.status != status)
            continue;
        wchar_t message[2 * kPathUnits];
        const std::size_t length = TextView(entry.text).copy(message, kPathUnits);
        const TextView shown = TextView(path).substr(0, kPathUnits);
        shown.copy(message + length, shown.size());
        message[length + shown.size()] = 0;
        return entry.systemError ? CheckResultWithSystemError(false, message) : CheckResult(false, message);
    }
    return status == KeyFileStatus::Done;
}

KeyFileState ReadKeyFileSummary(VolumeRecord& record) {
    const RecordPath path(record.KeyPath);
    const KeyFileStatus status = LoadSummary(path.text, record);
    if (status != KeyFileStatus::CannotOpen)
        return ReportKeyFile(status, path.text) ? KeyFileState::Readable : KeyFileState::Unreadable;
    record.Cipher = CipherId::None;
    CopyText(record.KeyPath, TextView());
    return GetFileAttributesW(path.text) == INVALID_FILE_ATTRIBUTES ? KeyFileState::Missing
                                                                    : KeyFileState::Unreadable;
}

void ReportUnreadableKeyFile(const wchar_t* keyPath) {
    VolumeRecord ignored{};
    const KeyFileStatus status = LoadSummary(keyPath, ignored);
    if (status == KeyFileStatus::Done) // by now
        SetLastError(ERROR_SUCCESS);
    ReportKeyFile(status == KeyFileStatus::Done ? KeyFileStatus::CannotRead : status, keyPath);
}

bool ReadChunk(const wchar_t* keyPath, const ChunkHeader& wanted, std::span<std::byte> payload) {
    return ReportKeyFile(LoadChunk(keyPath, wanted, payload), keyPath);
}

bool RewriteChunk(const wchar_t* keyPath, const ChunkHeader& wanted, std::span<const std::byte> payload) {
    return ReportKeyFile(StoreChunk(keyPath, wanted, payload), keyPath);
}

bool WriteKeyFile(const VolumeRecord& record, const PasswordDigest& passwordKey) {
    const RecordPath path(record.KeyPath);
    return ReportKeyFile(CreateKeyFile(path.text, record, passwordKey), path.text);
}

bool UpdateTimeout(const VolumeRecord& record) {
    if (record.Cipher == CipherId::None)
        return true;
    const RecordPath path(record.KeyPath);
    VolumeSettings settings{};
    settings.formatMark = kFormatMark;
    ReadChunk(path.text, kSettingsHeader, std::as_writable_bytes(std::span(&settings, 1)));
    settings.timeout = record.Timeout;
    settings.options = (settings.options & ~kTimeoutOption) | (record.Flags & kTimeoutOption);
    return RewriteChunk(path.text, kSettingsHeader, std::as_bytes(std::span(&settings, 1)));
}

bool BuildVolumeFiles(const VolumeRecord& record, const PasswordDigest& passwordKey) {
    const RecordPath path(record.Path);
    const bool isVolumeMade = CreateDataFile(path.text, record.Size);
    if (record.Cipher == CipherId::None || WriteKeyFile(record, passwordKey))
        return true;
    if (isVolumeMade)
        DeleteFileW(path.text);
    return false;
}

KeyFileState ReadVolumeInfo(VolumeRecord& record) {
    const ErrorHold hold; // the record counts as not mounted for a moment
    record.Size = VolumeFileSize(RecordPath(record.Path).text);
    KeyFileState state = KeyFileState::None;
    if (!FieldText(record.KeyPath).empty()) {
        state = ReadKeyFileSummary(record);
    } else {
        record.Cipher = CipherId::None;
        record.Timeout = 0;
        record.Flags = 0;
    }
    record.DeviceHandle = 0;
    return state;
}

bool RemoveVolumeFiles(const VolumeRecord& record) {
    DeleteFileW(RecordPath(record.Path).text);
    return DeleteFileW(RecordPath(record.KeyPath).text) != FALSE;
}

} // namespace quilla
