#include "ui/volume_drives.h"

#include "desktop/private_file.h"
#include "platform/win32/format_text.h"
#include "platform/win32/program_folder.h"
#include "service/driver_control.h"
#include "ui/window_settings.h"

#include <algorithm>
#include <cwchar>
#include <new>
#include <objbase.h>
#include <shellapi.h>

namespace quilla {

namespace {

constexpr wchar_t kAfterMountingName[] = L"AttachAfterMounting";
constexpr const wchar_t* kScripts[] = {L"AttachDrive.ps1", L"DetachDrive.ps1"}; // by step

/// What a script writes first, and what that means. A shell that is none writes nothing.
struct Word {
    const wchar_t* text;
    DriveResult result;
};
constexpr Word kWords[] = {{L"done", DriveResult::Done}, {L"refused", DriveResult::Refused}};

bool Exists(const wchar_t* path) {
    return GetFileAttributesW(path) != INVALID_FILE_ATTRIBUTES;
}

/// The system's own shell, never one from a search path: it is to run with an administrator's rights.
bool FindShell(PathText& shell, PathText& modules) {
    PathText system;
    const UINT length = GetSystemDirectoryW(system, kPathUnits);
    return length > 0 && length < kPathUnits &&
           FormatText(shell, L"%ls\\WindowsPowerShell\\v1.0\\powershell.exe", system) &&
           FormatText(modules, L"%ls\\WindowsPowerShell\\v1.0\\Modules\\iSCSI", system) && Exists(shell);
}

/// Makes the file for the answer and opens it.
UniqueFile OpenAnswer(const VolumeRecord& record, PathText& path) {
    if (!DriverControl::FindDeviceFile(record, L"drive", path) ||
        !WritePrivateFile(std::wcsrchr(path, L'\\') + 1, {}))
        return {};
    return UniqueFile(CreateFileW(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
}

bool Prepare(DriveRun& run, const VolumeRecord& record) {
    PathText modules;
    PathText script;
    PathText keys;
    PathText answer;
    if (!FindShell(run.shell, modules) || !DriverControl::FindDeviceFile(record, L"iscsi", keys) ||
        !PathBesideProgram(kScripts[static_cast<int>(run.step)], script))
        return false;
    run.answer = OpenAnswer(record, answer);
    return run.answer && FormatText(run.parameters,
                                    L"-NoProfile -NonInteractive -ExecutionPolicy Bypass -WindowStyle Hidden "
                                    L"-File \"%ls\" -KeyFile \"%ls\" -AnswerFile \"%ls\"",
                                    script, keys, answer);
}

void ReadAnswer(DriveRun& run) {
    char bytes[DriveRun::kTextUnits] = {};
    DWORD size = 0;
    ReadFile(run.answer.Get(), bytes, sizeof(bytes) - 1, &size, nullptr);
    wchar_t text[DriveRun::kTextUnits] = {};
    MultiByteToWideChar(CP_UTF8, 0, bytes, static_cast<int>(size), text, DriveRun::kTextUnits - 1);
    for (const Word& word : kWords) {
        const std::size_t length = std::wcslen(word.text);
        if (std::wcsncmp(text, word.text, length) != 0)
            continue;
        run.result = word.result;
        CopyText(run.text, text + length + (text[length] == L' ' ? 1 : 0));
    }
}

DWORD WINAPI Perform(void* context) {
    DriveRun& run = *static_cast<DriveRun*>(context);
    SHELLEXECUTEINFOW start{};
    start.cbSize = sizeof(start);
    start.fMask = SEE_MASK_NOCLOSEPROCESS | SEE_MASK_NOASYNC | SEE_MASK_FLAG_NO_UI;
    start.hwnd = run.window;
    start.lpVerb = L"runas";
    start.lpFile = run.shell;
    start.lpParameters = run.parameters;
    start.nShow = SW_HIDE;
    static_cast<void>(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED | COINIT_DISABLE_OLE1DDE));
    if (ShellExecuteExW(&start)) {
        const UniqueProcess process(start.hProcess);
        WaitForSingleObject(process.Get(), INFINITE);
        ReadAnswer(run);
    } else if (GetLastError() == ERROR_CANCELLED) {
        run.result = DriveResult::Declined;
    }
    CoUninitialize();
    const HWND window = run.window;
    SetEvent(run.over.Get());
    PostMessageW(window, WM_NULL, 0, 0);
    return 0;
}

bool IsOver(const DriveRun& run) {
    return WaitForSingleObject(run.over.Get(), 0) == WAIT_OBJECT_0;
}

} // namespace

VolumeDrives::~VolumeDrives() {
    for (auto& run : runs_)
        if (run && !IsOver(*run))
            static_cast<void>(run.release()); // its thread uses it
}

bool VolumeDrives::CanAttach() {
    PathText shell;
    PathText modules;
    PathText found;
    return FindShell(shell, modules) && (Exists(modules) || SearchPathW(nullptr, L"wnbd-client.exe", nullptr,
                                                                        kPathUnits, found, nullptr) > 0);
}

bool VolumeDrives::Start(HWND window, const VolumeRecord& record, DriveStep step, bool isAskedFor,
                         bool dismounts) {
    const auto free = std::ranges::find_if(runs_, [](const auto& run) { return !run; });
    if (IsBusy(record.DeviceHandle) || free == runs_.end())
        return false;
    std::unique_ptr<DriveRun> run(new (std::nothrow) DriveRun);
    if (!run)
        return false;
    run->device = record.DeviceHandle;
    run->step = step;
    run->isAskedFor = isAskedFor;
    run->dismounts = dismounts;
    run->window = window;
    if (!Prepare(*run, record))
        return false;
    run->thread.Reset(CreateThread(nullptr, 0, Perform, run.get(), 0, nullptr));
    if (!run->thread)
        return false;
    *free = std::move(run);
    return true;
}

bool VolumeDrives::IsBusy(std::uint32_t device) const {
    return std::ranges::any_of(runs_, [device](const auto& run) { return run && run->device == device; });
}

std::unique_ptr<DriveRun> VolumeDrives::TakeOver() {
    const auto over = std::ranges::find_if(runs_, [](const auto& run) { return run && IsOver(*run); });
    return over == runs_.end() ? nullptr : std::move(*over);
}

bool VolumeDrives::AttachesAfterMounting() {
    DWORD value = 0;
    DWORD size = sizeof(value);
    return RegGetValueW(HKEY_CURRENT_USER, kWindowSettingsKey, kAfterMountingName, RRF_RT_REG_DWORD, nullptr,
                        &value, &size) == ERROR_SUCCESS &&
           value != 0;
}

void VolumeDrives::SetAttachesAfterMounting(bool attaches) {
    const DWORD value = attaches ? 1 : 0;
    RegSetKeyValueW(HKEY_CURRENT_USER, kWindowSettingsKey, kAfterMountingName, REG_DWORD, &value,
                    sizeof(value));
}

} // namespace quilla
