#include "app/command_worker.h"

#include "app/application.h"
#include "desktop/full_path.h"
#include "platform/error_box.h"
#include "platform/wipe.h"
#include "store/default_key_path.h"
#include "store/volume_password.h"
#include "ui/resource.h"
#include "ui/volume_dialogs.h"
#include "volume/sha1.h"

namespace quilla {

namespace {

constexpr int kHandedOn = 0;
constexpr int kWrongPassword = -1;
constexpr int kUntriedPassword = 2;

bool Exists(const wchar_t* path) {
    return GetFileAttributesW(path) != INVALID_FILE_ATTRIBUTES;
}

/// Makes the password key and wipes the password.
void TakeRequestPassword(CommandLineRequest& request, PasswordDigest& key) {
    PasswordKey(key, FieldText(request.password));
    Wipe(request.password);
}

int MountWithPassword(VolumeRecord& record, CommandLineRequest& request, RequestChannel& channel) {
    Secret<PasswordDigest> passwordKey;
    TakeRequestPassword(request, *passwordKey);
    KeyAttempt attempt;
    if (!UnlockVolume(record, *passwordKey, &attempt)) {
        ShowNotedErrors(); // what led to it comes first
        if (attempt.IsUntried())
            return kUntriedPassword;
        MessageBoxW(nullptr, L"Incorrect password", L"Quilla Tarn Error", MB_ICONERROR);
        return kWrongPassword;
    }
    channel.SendMountVolume(record);
    return kHandedOn;
}

int Mount(CommandLineRequest& request, const UiServices& services) {
    Secret<VolumeRecord> record;
    CopyText(record->Path, FieldText(request.volumePath));
    CompletePath(record->Path);
    if (request.hasKey)
        CopyText(record->KeyPath, FieldText(request.keyPath));
    else
        DefaultKeyPath(FieldText(record->Path), record->KeyPath);
    CompletePath(record->KeyPath);
    PathText keyPath;
    CopyText(keyPath, FieldText(record->KeyPath));
    services.channel.SendQueryVolume(*record);
    // The owner leaves out a key file that it could not open; the error to come shall name it.
    if (FieldText(record->KeyPath).empty() && (request.hasPassword || Exists(keyPath)))
        CopyText(record->KeyPath, FieldText(keyPath));
    if (request.hasPassword)
        return MountWithPassword(*record, request, services.channel);
    MountDialog dialog(*record, services);
    dialog.DoModal(nullptr, MAKEINTRESOURCEW(IDD_VOLUME));
    return kHandedOn;
}

int Dismount(const CommandLineRequest& request, RequestChannel& channel) {
    VolumeRecord record{};
    CopyText(record.Path, FieldText(request.volumePath));
    CompletePath(record.Path);
    channel.SendDismountVolume(record);
    return kHandedOn;
}

} // namespace

int RunCommand(CommandLineRequest& request) {
    const UiServices& services = GetApplication().Services();
    const TextView command = FieldText(request.command);
    if (command == kWakeUpCommand)
        services.channel.SendCheckTimeouts();
    else if (command == kMountCommand)
        return Mount(request, services);
    else if (command == kDismountCommand)
        return Dismount(request, services.channel);
    return kHandedOn;
}

} // namespace quilla
