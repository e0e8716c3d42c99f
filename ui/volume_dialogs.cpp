// The dialog of a volume, and its variants for a volume that exists: Mount and Properties.

#include "ui/volume_dialogs.h"

#include "desktop/full_path.h"
#include "platform/error_box.h"
#include "platform/win32/format_text.h"
#include "platform/wipe.h"
#include "store/display_text.h"
#include "store/volume_files.h"
#include "store/volume_password.h"
#include "ui/dialog_support.h"
#include "ui/dialog_values.h"
#include "ui/file_name.h"
#include "ui/resource.h"
#include "ui/secret_edit.h"

#include <commctrl.h>

namespace quilla {

namespace {

constexpr const wchar_t* kUnitNames[] = {L"KB", L"MB", L"GB"};

constexpr int kMaxValue = 32767; // controls of the platform's first releases have 16 bits

void SetUpDown(const BUpDown& upDown, std::int16_t value) {
    SendMessageW(upDown.hwnd, UDM_SETRANGE32, 0, kMaxValue);
    SendMessageW(upDown.hwnd, UDM_SETPOS32, 0, value);
}

bool ConfirmMissingKeyFile(HWND dialog, const wchar_t* keyPath) {
    wchar_t question[kPathUnits + 256];
    FormatText(
        question,
        L"The key file\n\n%ls\n\nis missing. If the volume is encrypted, it shows nothing but meaningless "
        L"data without it, and formatting it would destroy what it holds.\n\nMount it without a key file?",
        keyPath);
    return MessageBoxW(dialog, question, L"Quilla Tarn", MB_YESNO | MB_ICONWARNING | MB_DEFBUTTON2) == IDYES;
}

constexpr ControlLayout kLayout[] = {
    {IDC_VOLUME, Follow::Stretch},   {IDC_CIPHER, Follow::Stretch}, {IDC_KEY, Follow::Stretch},
    {IDC_PASSWORD, Follow::Stretch}, {IDC_REPEAT, Follow::Stretch}, {IDOK, Follow::Move},
    {IDCANCEL, Follow::Move},
};

} // namespace

VolumeDialog::VolumeDialog(VolumeRecord& volume, const UiServices& services)
    : record(&volume), work{}, volumeField(fieldHost_), keyField(fieldHost_), services_(services) {}

VolumeDialog::~VolumeDialog() {
    Wipe(work);
}

void VolumeDialog::Attach(HWND handle) {
    BDialog::Attach(handle);
    work = *record;
    FitDialog(hwnd, kDesktopExtraWidth, kLayout);
    BindControls();
    ShowFileField(volumeField, IDC_VOLUME, work.Path);
    ShowSizeOfVolume();
    for (const CipherId cipher : kOfferedCiphers)
        SendMessageW(cipherCombo.hwnd, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(CipherName(cipher)));
    SendMessageW(cipherCombo.hwnd, CB_SETCURSEL, static_cast<WPARAM>(ShowCipher(work.Cipher)), 0);
    ShowFileField(keyField, IDC_KEY, work.KeyPath);
    PrepareSecretEdit(passwordEdit.hwnd);
    SetUpDown(timeoutUpDown, ShowTimeout(work.Timeout));
}

void VolumeDialog::BindControls() {
    const auto bind = [this](BWindow& object, int id) { object.Attach(GetDlgItem(hwnd, id)); };
    bind(sizeEdit, IDC_SIZE_VALUE);
    bind(sizeUpDown, IDC_SIZE_SPIN);
    bind(unitCombo, IDC_SIZE_UNIT);
    bind(cipherCombo, IDC_CIPHER);
    bind(passwordEdit, IDC_PASSWORD);
    bind(timeoutEdit, IDC_TIMEOUT);
    bind(timeoutUpDown, IDC_TIMEOUT_SPIN);
}

void VolumeDialog::ShowFileField(DialogFileField& field, int id, const wchar_t* path) {
    field.Attach(GetDlgItem(hwnd, id));
    SendMessageW(field.hwnd, WM_SETFONT, static_cast<WPARAM>(SendMessageW(hwnd, WM_GETFONT, 0, 0)), TRUE);
    SetWindowTextW(field.edit.hwnd, path);
}

void VolumeDialog::ShowSizeOfVolume() {
    const ShownSize size = ShowSize(work.Size);
    SetUpDown(sizeUpDown, size.value);
    for (const wchar_t* const name : kUnitNames)
        SendMessageW(unitCombo.hwnd, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(name));
    SendMessageW(unitCombo.hwnd, CB_SETCURSEL, static_cast<WPARAM>(size.unit), 0);
}

void VolumeDialog::SetCaption(UINT stringId) {
    wchar_t caption[32];
    LoadStringW(GetModuleHandleW(nullptr), stringId, caption, std::size(caption));
    SetWindowTextW(hwnd, caption);
}

void VolumeDialog::LockFixedFields() {
    volumeField.SetReadOnly(true);
    SendMessageW(sizeEdit.hwnd, EM_SETREADONLY, TRUE, 0);
    EnableWindow(sizeUpDown.hwnd, FALSE); // its arrows would still count
    // The keys and the wheel would, too, if the range left them room.
    const LRESULT size = SendMessageW(sizeUpDown.hwnd, UDM_GETPOS32, 0, 0);
    SendMessageW(sizeUpDown.hwnd, UDM_SETRANGE32, static_cast<WPARAM>(size), size);
    unitCombo.SetLocked(true);
    cipherCombo.SetLocked(true);
}

LRESULT VolumeDialog::OnMessage(BMessage& message) {
    if (message.message == WM_DESTROY)
        WipeSecretEdit(passwordEdit.hwnd);
    return BDialog::OnMessage(message);
}

LRESULT VolumeDialog::OnCommand(int id, int code, HWND control) {
    if (wait_.IsRunning() && id != IDCANCEL)
        return 0;
    switch (id) {
    case IDOK:
        // By key the focus may still be in a field whose name is completed when it leaves.
        SendMessageW(hwnd, WM_NEXTDLGCTL, reinterpret_cast<WPARAM>(GetDlgItem(hwnd, IDOK)), TRUE);
        OnOk();
        return 0;
    case IDCANCEL:
        EndDialog(IDCANCEL);
        return 0;
    default:
        // Past the dialog's own handling, which would end it. NOLINTNEXTLINE(bugprone-parent-virtual-call)
        return BWindow::OnCommand(id, code, control);
    }
}

void VolumeDialog::OnUpdateCommand(BCommandState& state) {
    switch (state.id) {
    case IDC_KEY_LABEL:
    case IDC_KEY:
    case IDC_PASSWORD_LABEL:
    case IDC_REPEAT_LABEL:
    case IDC_REPEAT:
    case IDC_PASSWORD: // a choice that is still being made decides nothing
        if (!SendMessageW(cipherCombo.hwnd, CB_GETDROPPEDSTATE, 0, 0))
            state.Enable(SendMessageW(cipherCombo.hwnd, CB_GETCURSEL, 0, 0) != 0);
        return;
    case IDC_STRENGTH:
        state.Enable(IsNewVolume() && SendMessageW(cipherCombo.hwnd, CB_GETCURSEL, 0, 0) != 0);
        return;
    default:
        BDialog::OnUpdateCommand(state);
    }
}

/// The up-down goes on telling the number before, which is not the one on the screen.
bool VolumeDialog::TakeNumber(const BEdit& edit, const BUpDown& upDown, std::int16_t& number) {
    BOOL isRefused = FALSE;
    number = static_cast<std::int16_t>(
        SendMessageW(upDown.hwnd, UDM_GETPOS32, 0, reinterpret_cast<LPARAM>(&isRefused)));
    const bool isNumber = !isRefused && GetWindowTextLengthW(edit.hwnd) > 0; // of none, some tell 0
    if (!isNumber)
        RejectInput(hwnd, edit.hwnd, L"The number has to be between 0 and 32767");
    return isNumber;
}

bool VolumeDialog::TakeTimeout() {
    std::int16_t minutes = 0;
    const bool isTaken = TakeNumber(timeoutEdit, timeoutUpDown, minutes);
    work.Timeout = TimeoutFromShown(minutes);
    return isTaken;
}

void VolumeDialog::Finish() {
    ShowNotedErrors();
    EndDialog(IDOK);
}

void VolumeDialog::ChooseCipher(CipherId cipher) {
    SendMessageW(cipherCombo.hwnd, CB_SETCURSEL, static_cast<WPARAM>(ShowCipher(cipher)), 0);
    UpdateCommandStates();
}

void VolumeDialog::OnNameChosen(DialogFileField& field, const wchar_t* name) {
    if (&field == &volumeField)
        SetVolumePath(name);
    else
        field.SetName(name);
}

void VolumeDialog::SetVolumePath(const wchar_t* path) {
    volumeField.SetName(path);
    PathText keyPath;
    ProposeKeyPath(path, keyPath);
    keyField.SetName(keyPath);
}

void MountDialog::Attach(HWND handle) {
    VolumeDialog::Attach(handle);
    SetCaption(IDS_MOUNT);
    ShowWindow(GetDlgItem(hwnd, IDC_STRENGTH), SW_HIDE);
    LockFixedFields();
    BProbeState password(IDC_PASSWORD);
    RouteUpdateCommand(password);
    if (password.enabled)
        SetFocus(passwordEdit.hwnd);
}

/// Reads the key file that is named now: it decides whether a password is needed. Without the key file that a
/// volume should have its clients would meet enciphered data, and offer to format it.
bool MountDialog::IsKeyFileUsable() {
    keyField.GetName(work.KeyPath);
    CompletePath(work.KeyPath);
    VolumeRecord seen = work;
    const KeyFileState state = ReadVolumeInfo(seen);
    if (state == KeyFileState::Unreadable) {
        if (!ShowNotedErrors()) // of the reading
            ReportUnreadableKeyFile(work.KeyPath);
        return false;
    }
    if (state == KeyFileState::Missing && work.Cipher == CipherId::None)
        return ConfirmMissingKeyFile(hwnd, work.KeyPath);
    const bool needsPassword = state == KeyFileState::Readable && work.Cipher != seen.Cipher;
    if (!needsPassword)
        return true;
    work.Cipher = seen.Cipher;
    ChooseCipher(work.Cipher);
    if (work.Cipher == CipherId::None)
        return true;
    SetFocus(passwordEdit.hwnd);
    return GetWindowTextLengthW(passwordEdit.hwnd) > 0;
}

void MountDialog::OnOk() {
    if (!TakeTimeout() || !IsKeyFileUsable())
        return;
    if (work.Cipher != CipherId::None) {
        Secret<PasswordDigest> passwordKey;
        TakePasswordKey(passwordEdit.hwnd, *passwordKey);
        KeyAttempt attempt{.strengthener = wait_};
        if (!UnlockVolume(work, *passwordKey, &attempt)) {
            if (attempt.status == KeyFileStatus::Stopped)
                return;
            RejectInput(hwnd, passwordEdit.hwnd, attempt.IsUntried() ? nullptr : L"Incorrect password");
            return;
        }
    }
    services_.channel.SendMountVolume(work);
    Wipe(work.Key);
    {
        const ErrorHold hold;
        UpdateTimeout(work);
    }
    Finish();
}

void PropertiesDialog::Attach(HWND handle) {
    VolumeDialog::Attach(handle);
    SetCaption(IDS_PROPERTIES);
    LockFixedFields();
    SendMessageW(passwordEdit.hwnd, EM_SETREADONLY, TRUE, 0);
    if (work.IsMounted())
        keyField.SetReadOnly(true);
    ShowStrength();
    AskAgain(hwnd, timeoutEdit.hwnd);
}

/// Tells whether guessing is slowed down; says nothing where the key file does not.
void PropertiesDialog::ShowStrength() {
    const HWND box = GetDlgItem(hwnd, IDC_STRENGTH);
    std::optional<KeyStrength> strength;
    const bool isKnown =
        work.Cipher != CipherId::None && LoadKeyStrength(work.KeyPath, strength) == KeyFileStatus::Done;
    SendMessageW(box, BM_SETCHECK, strength ? BST_CHECKED : BST_UNCHECKED, 0);
    ShowWindow(box, isKnown ? SW_SHOWNA : SW_HIDE);
}

void PropertiesDialog::OnOk() {
    if (!keyField.readOnly) {
        keyField.GetName(work.KeyPath);
        CompletePath(work.KeyPath);
    }
    if (!TakeTimeout())
        return;
    if (!record->IsMounted()) // by now
        CopyText(record->KeyPath, FieldText(work.KeyPath));
    record->Timeout = work.Timeout;
    if (record->IsMounted())
        services_.driver.UpdateDriver(*record);
    {
        const ErrorHold hold;
        UpdateTimeout(*record);
    }
    Finish();
}

} // namespace quilla
