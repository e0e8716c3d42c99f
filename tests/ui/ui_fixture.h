#pragma once

#include "service/driver_control.h"
#include "service/request_channel.h"
#include "service/window_messages.h"
#include "store/volume_files.h"
#include "tests/support/deadline.h"
#include "tests/support/message_box_watcher.h"
#include "tests/support/temporary_folder.h"
#include "tests/toolkit/toolkit_fixture.h"
#include "ui/dialog_support.h"
#include "ui/main_window.h"
#include "ui/resource.h"
#include "volume/sha1.h"

#include <memory>
#include <optional>
#include <string>
#include <windows.h>

#include <commctrl.h>

/// The real main window and its dialogs, driven by messages and keys like a user's.
namespace quilla::test {

inline constexpr wchar_t kProgramKey[] = L"Software\\Orvane\\Quilla";

/// A control of the open dialog; of a file field, its edit.
inline HWND Control(int id) {
    const HWND control = GetDlgItem(FindOpenDialog(), id);
    const HWND inner = FindWindowExW(control, nullptr, L"EDIT", nullptr);
    return inner && id != IDC_SIZE_UNIT && id != IDC_CIPHER ? inner : control;
}

inline std::wstring FieldTextOf(int id) {
    return TextOf(Control(id));
}

/// Replaces the text of a field as typing does.
inline void Type(int id, const std::wstring& text) {
    SendMessageW(Control(id), EM_SETSEL, 0, -1);
    for (const wchar_t unit : text)
        SendMessageW(Control(id), WM_CHAR, unit, 1);
    if (text.empty())
        SendMessageW(Control(id), WM_CLEAR, 0, 0);
}

inline void MoveFocusTo(int id) {
    SendMessageW(FindOpenDialog(), WM_NEXTDLGCTL, reinterpret_cast<WPARAM>(GetDlgItem(FindOpenDialog(), id)),
                 TRUE);
}

inline int Chosen(int id) {
    return static_cast<int>(SendMessageW(GetDlgItem(FindOpenDialog(), id), CB_GETCURSEL, 0, 0));
}

inline bool IsReadOnly(int id) {
    return (GetWindowLongW(Control(id), GWL_STYLE) & ES_READONLY) != 0;
}

inline void Press(int id) {
    SendMessageW(FindOpenDialog(), WM_COMMAND, static_cast<WPARAM>(id),
                 reinterpret_cast<LPARAM>(GetDlgItem(FindOpenDialog(), id)));
}

/// While it lives, tries an action again and again until that returns true, also in the system's own loops of
/// menus and file dialogs.
class Meanwhile {
  public:
    explicit Meanwhile(std::function<bool()> action) {
        action_ = std::move(action);
        timer_ = SetTimer(nullptr, 0, 20, [](HWND, UINT, UINT_PTR, DWORD) {
            if (action_ && action_())
                action_ = nullptr;
        });
    }
    ~Meanwhile() {
        KillTimer(nullptr, timer_);
        EXPECT_FALSE(action_) << "what was waited for did not come";
    }
    Meanwhile(const Meanwhile&) = delete;
    Meanwhile& operator=(const Meanwhile&) = delete;

    /// Whether the action is still tried.
    [[nodiscard]] static bool IsWaiting() { return action_ != nullptr; }

  private:
    static inline std::function<bool()> action_;
    UINT_PTR timer_ = 0;
};

class UiTest : public ToolkitTest {
  protected:
    UiTest() {
        const INITCOMMONCONTROLSEX classes{sizeof(classes),
                                           ICC_LISTVIEW_CLASSES | ICC_BAR_CLASSES | ICC_UPDOWN_CLASS};
        InitCommonControlsEx(&classes);
        RegDeleteTreeW(HKEY_CURRENT_USER, kProgramKey);
    }
    ~UiTest() override {
        CloseMainWindow();
        RegDeleteTreeW(HKEY_CURRENT_USER, kProgramKey);
    }

    /// The main window, created as at the start of the program and not shown yet.
    void OpenMainWindow() {
        window.emplace(services);
        window->Create();
        target = window->hwnd;
    }

    void CloseMainWindow() {
        if (!window)
            return;
        if (window->hwnd) {
            Command(IDM_DISMOUNT_ALL);
            DestroyWindow(window->hwnd);
        }
        application.PumpPending(); // uses the WM_QUIT up
        window.reset();
    }

    /// Creates the files of a volume with a password and opens it in the main window.
    std::wstring AddVolume(const std::wstring& name, CipherId cipher = CipherId::Twofish,
                           const std::wstring& password = L"secret", std::uint64_t size = 64 * 1024) {
        VolumeRecord record{};
        CopyText(record.Path, folder.File(name + L".raw"));
        CopyText(record.KeyPath, cipher == CipherId::None ? L"" : folder.File(name + L".key"));
        record.Size = size;
        record.Cipher = cipher;
        record.Timeout = kDefaultTimeout;
        PasswordDigest key;
        PasswordKey(key, TextView(password));
        EXPECT_TRUE(BuildVolumeFiles(record, key));
        channel.SendQueryVolume(record);
        return record.Path;
    }

    [[nodiscard]] HWND Part(const wchar_t* className) const {
        return FindWindowExW(window->hwnd, nullptr, className, nullptr);
    }
    [[nodiscard]] HWND List() const { return Part(L"SysListView32"); }
    [[nodiscard]] HWND Toolbar() const { return Part(L"ToolbarWindow32"); }
    [[nodiscard]] int CountRows() const { return ListView_GetItemCount(List()); }

    [[nodiscard]] std::wstring Cell(int row, int column) const {
        wchar_t text[512] = {};
        ListView_GetItemText(List(), row, column, text, 512);
        return text;
    }

    [[nodiscard]] const VolumeRecord& RecordOf(int row) const {
        LVITEMW item{};
        item.mask = LVIF_PARAM;
        item.iItem = row;
        ListView_GetItem(List(), &item);
        return *reinterpret_cast<const VolumeRecord*>(item.lParam);
    }

    void Select(int row) const {
        ListView_SetItemState(List(), -1, 0, LVIS_SELECTED);
        ListView_SetItemState(List(), row, LVIS_SELECTED | LVIS_FOCUSED, LVIS_SELECTED | LVIS_FOCUSED);
    }

    /// A notification of the list.
    template <typename Notification>
    void Notify(Notification& notification, UINT code) const {
        notification.hdr = {List(), static_cast<UINT_PTR>(GetDlgCtrlID(List())), code};
        SendMessageW(window->hwnd, WM_NOTIFY, notification.hdr.idFrom,
                     reinterpret_cast<LPARAM>(&notification));
    }

    /// Sends a command as a menu does.
    void Command(int id) const { SendMessageW(window->hwnd, WM_COMMAND, static_cast<WPARAM>(id), 0); }

    /// Runs a command that opens a dialog, and the steps of a user in it.
    void Command(int id, std::vector<Step> steps) {
        application.Play(std::move(steps));
        Command(id);
        EXPECT_TRUE(application.PlayedToTheEnd());
    }

    /// A step in the dialog that is open, with its command states up to date as the idle program has them.
    static Step InDialog(std::function<void()> action) {
        return {[] { return FindOpenDialog() != nullptr; },
                [action = std::move(action)] {
                    if (BWindow* const dialog = ObjectFromHandle(FindOpenDialog()))
                        dialog->UpdateCommandStates();
                    action();
                }};
    }

    /// Mounts the volume of a row through the Mount dialog.
    void MountRow(int row, const std::wstring& password = L"secret") {
        Select(row);
        Command(IDM_MOUNT, {InDialog([&] {
                    if (IsWindowEnabled(Control(IDC_PASSWORD)))
                        Type(IDC_PASSWORD, password);
                    Press(IDOK);
                })});
    }

    Deadline deadline;
    TemporaryFolder folder;
    HWND target = nullptr;
    DriverControl driver;
    RequestChannel channel{target};
    FilePicker picker{kVolumeFilter};
    UniqueEvent instanceEvent{CreateEventW(nullptr, TRUE, TRUE, nullptr)};
    UiServices services{
        .driver = driver, .channel = channel, .picker = picker, .instanceEvent = instanceEvent};
    std::optional<MainWindow> window;
};

} // namespace quilla::test
