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

/// Where nobody answers, a record comes back as it was, its key included.
int HandOver(VolumeRecord& unlocked, RequestChannel& channel) {
    channel.SendMountVolume(unlocked);
    if (!unlocked.IsMounted() && !GetApplication().IsTargetServing())
        return kNobodyServes;
    Wipe(unlocked);
    return kHandedOn;
}

int MountWithPassword(VolumeRecord& record, CommandLineRequest& request, VolumeRecord& unlocked,
                      RequestChannel& channel) {
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
    unlocked = record;
    Wipe(record.Key);
    return HandOver(unlocked, channel);
}

int MountByDialog(VolumeRecord& record, const UiServices& services) {
    MountDialog dialog(record, services);
    const bool isSent = dialog.DoModal(nullptr, MAKEINTRESOURCEW(IDD_VOLUME)) == IDOK;
    return isSent && !GetApplication().IsTargetServing() ? kNobodyServes : kHandedOn;
}

void NameFiles(const CommandLineRequest& request, VolumeRecord& record) {
    CopyText(record.Path, FieldText(request.volumePath));
    CompletePath(record.Path);
    if (request.hasKey)
        CopyText(record.KeyPath, FieldText(request.keyPath));
    else
        DefaultKeyPath(FieldText(record.Path), record.KeyPath);
    CompletePath(record.KeyPath);
}

int Mount(CommandLineRequest& request, VolumeRecord& unlocked, const UiServices& services) {
    if (unlocked.Path[0] != 0)
        return HandOver(unlocked, services.channel);
    VolumeRecord asked{};
    NameFiles(request, asked);
    Secret<VolumeRecord> known;
    *known = asked;
    services.channel.SendQueryVolume(*known);
    if (!GetApplication().IsTargetServing())
        return kNobodyServes;
    // The owner leaves out a key file that it could not open; the error to come shall name it.
    if (FieldText(known->KeyPath).empty() && (request.hasPassword || Exists(asked.KeyPath)))
        CopyText(known->KeyPath, FieldText(asked.KeyPath));
    return request.hasPassword ? MountWithPassword(*known, request, unlocked, services.channel)
                               : MountByDialog(*known, services);
}

int Dismount(const CommandLineRequest& request, RequestChannel& channel) {
    VolumeRecord record{};
    CopyText(record.Path, FieldText(request.volumePath));
    CompletePath(record.Path);
    channel.SendDismountVolume(record);
    return kHandedOn;
}

} // namespace

int RunCommand(CommandLineRequest& request, VolumeRecord& unlocked) {
    const UiServices& services = GetApplication().Services();
    const TextView command = FieldText(request.command);
    if (command == kWakeUpCommand)
        services.channel.SendCheckTimeouts();
    else if (command == kMountCommand)
        return Mount(request, unlocked, services);
    else if (command == kDismountCommand)
        return Dismount(request, services.channel);
    return kHandedOn;
}

} // namespace quilla
