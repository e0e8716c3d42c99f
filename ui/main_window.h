#pragma once

#include "service/mount_observer.h"
#include "service/request_server.h"
#include "toolkit/window.h"
#include "ui/command_bar.h"
#include "ui/dismount_occasions.h"
#include "ui/notification_icon.h"
#include "ui/ui_services.h"
#include "ui/volume_drives.h"
#include "ui/volume_list_view.h"

#include <shellapi.h>

namespace quilla {

/// The program's one top-level window: command bar, list of volumes and notification icon. Owns the list,
/// serves the requests of dialogs and of other processes, and carries out the commands.
///
/// It exists for the life of the program and is hidden, not destroyed, when it is closed while a volume is
/// mounted. Its destruction ends the message loop.
class MainWindow final : public BWindow {
  public:
    /// The services are used from the window's creation on.
    explicit MainWindow(const UiServices& services);

    void GetCreateDefaults(WNDCLASSW& windowClass, CREATESTRUCTW& creation) override;
    void Attach(HWND handle) override;
    LRESULT OnMessage(BMessage& message) override;
    LRESULT OnCommand(int id, int code, HWND control) override;
    void OnUpdateCommand(BCommandState& state) override;
    bool PreTranslate(MSG& message) override;

    /// Is called when the program has nothing to do: obeys what had to wait for a dialog or a box to end.
    void OnIdle();

  private:
    /// Hears for the window what the server tells.
    class ServerObserver final : public MountObserver {
      public:
        explicit ServerObserver(MainWindow& window) : window_(window) {}
        void OnVolumeMounted(const VolumeRecord& record) override { window_.OnVolumeMounted(record); }
        void OnVolumeDismounted(const VolumeRecord& record, DismountReason reason,
                                const StopReport& report) override {
            window_.OnVolumeDismounted(record, reason, report);
        }

      private:
        MainWindow& window_;
    };

    static const LONG kWindowStyle;
    enum class Rule : unsigned char;
    struct Command;
    static const Command kCommands[];
    [[nodiscard]] static const Command* FindCommand(int id);

    void LoadIcons();
    void PlaceList();
    void RestoreSettings();
    void SaveSettings() const;
    /// Whether something is going on that the window and its rows have to outlast.
    [[nodiscard]] bool IsOccupied() const;
    void OnClose();
    void CloseIfWanted();
    void TidyAfterRequests();
    static void OnShowErrors();
    void OnDestroy();
    void OnTrayMessage(LPARAM mouseMessage);
    LRESULT OnRequest();
    void OnDetached();
    /// Takes messages that only this edition has; false for others.
    bool OnEditionMessage(const BMessage& message, LRESULT& result);
    void OnDpiChanged(LPARAM place);
    void OnDropFiles(HDROP drop);
    void OnVolumeMounted(const VolumeRecord& record);
    void OnVolumeDismounted(const VolumeRecord& record, DismountReason reason, const StopReport& report);

    /// The record of the one selected row; null with no or several rows selected.
    [[nodiscard]] VolumeRecord* SelectedVolume() const;
    void OpenVolume(const wchar_t* path);
    void RemoveVolume(const VolumeRecord& record);
    void UpdateVolume(VolumeRecord& record);
    void OpenListMenu(POINT screen);
    void OpenTrayMenu();
    /// Adds to a pop-up menu what only this edition shows.
    void CompleteMenu(HMENU menu, int menuId, int defaultCommand);
    void ComeToFront();
    void TrackMenu(int menuId, POINT screen, int defaultCommand);

    void New();
    void Open();
    void CloseSelected();
    void DeleteSelected();
    void Exit();
    void Mount();
    void Dismount();
    void OpenChangePassword();
    void EditProperties();
    void ShowContents();
    void ShowAbout();
    void CopyAddress();
    void AttachDrive();
    void DetachDrive();
    void ToggleAttachAfterMounting();
    void ShowFromTray();
    void DismountAll();
    void DismountAllAndExit();
    void Refresh();
    /// Begins to detach a volume that is a drive, after which it is dismounted; false if it is none.
    bool DetachFirst(const VolumeRecord& record);
    void StartDriveStep(const VolumeRecord& record, DriveStep step, bool isAskedFor, bool dismounts);
    void ShowDrive(std::uint32_t device, DriveState state, const wchar_t* letters);
    void ShowAttachByHand(const VolumeRecord& record) const;
    void FinishDriveSteps();
    void FinishDriveStep(const DriveRun& run, const wchar_t* volume);
    void DismountDetached(const DriveRun& run);
    /// Asks before clients of a mounted volume are cut off; true without any.
    [[nodiscard]] bool ConfirmCutOff(const VolumeRecord& record) const;

    UiServices services_;
    CommandBar bar_;
    VolumeListView list_;
    HACCEL accelerators_ = nullptr; ///< a resource: freed with the module
    NotificationIcon icon_;
    DismountOccasions occasions_;
    VolumeDrives drives_;
    ServerObserver observer_{*this};
    RequestServer server_;
    UniqueIcon smallIcon_;
    UniqueIcon largeIcon_;
    UINT shellStarted_ = 0; ///< the message with which a new shell asks for notification icons
    bool maximizeWhenShown_ = false;
    bool hasToldOfHiding_ = false;
    bool isHelpGiven_ = false; ///< the F1 that is down has opened the help
    bool isMenuOpen_ = false;
    bool hasServed_ = false;       ///< requests, since the rows were put in order
    bool isClosePutOff_ = false;   ///< one came while something stood in its way
    bool endsWithVolumes_ = false; ///< the program ends when the last volume is dismounted
    bool isClosing_ = false;       ///< for good: the window takes no request any more
};

} // namespace quilla
