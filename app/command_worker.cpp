#include "app/command_worker.h"

#include "desktop/current_folder.h"
#include "platform/wipe.h"
#include "store/default_key_path.h"
#include "store/volume_password.h"
#include "ui/mount_dialog.h"
#include "ui/resource.h"
#include "volume/sha1.h"

namespace quilla {

namespace {

constexpr int kHandedOn = 0;
constexpr int kWrongPassword = -1;

/// Makes the password key and wipes the password.
void TakePasswordKey(CommandLineRequest& request, PasswordDigest& key) {
    PasswordKey(key, FieldText(request.password));
    Wipe(request.password);
}

int MountWithPassword(VolumeRecord& record, CommandLineRequest& request, RequestChannel& channel) {
    Secret<PasswordDigest> passwordKey;
    TakePasswordKey(request, *passwordKey);
    if (!UnlockVolume(record, *passwordKey)) {
        MessageBoxW(nullptr, L"Incorrect password", L"Quilla Tarn Error", MB_ICONERROR);
        return kWrongPassword;
    }
    channel.SendMountVolume(record);
    return kHandedOn;
}

int Mount(CommandLineRequest& request, const UiServices& services) {
    Secret<VolumeRecord> record;
    CopyText(record->Path, FieldText(request.volumePath));
    AddCurrentFolder(record->Path);
    if (request.hasKey)
        CopyText(record->KeyPath, FieldText(request.keyPath));
    else
        DefaultKeyPath(FieldText(record->Path), record->KeyPath);
    AddCurrentFolder(record->KeyPath);
    services.channel.SendQueryVolume(*record);
    if (request.hasPassword)
        return MountWithPassword(*record, request, services.channel);
    MountDialog dialog(*record, services);
    dialog.DoModal(nullptr, MAKEINTRESOURCEW(IDD_VOLUME));
    return kHandedOn;
}

int Dismount(const CommandLineRequest& request, RequestChannel& channel) {
    VolumeRecord record{};
    CopyText(record.Path, FieldText(request.volumePath));
    AddCurrentFolder(record.Path);
    channel.SendDismountVolume(record);
    return kHandedOn;
}

} // namespace

int RunCommand(CommandLineRequest& request, const UiServices& services) {
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
