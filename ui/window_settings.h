#pragma once

#include <windows.h>

namespace quilla {

inline constexpr wchar_t kWindowSettingsKey[] = L"Software\\Orvane\\Quilla\\Window";

inline constexpr int kListColumns = 5;

/// What the main window looks like between two runs. Kept beside the volume list in the registry, one number
/// per value, under HKEY_CURRENT_USER\Software\Orvane\Quilla\Window.
struct WindowSettings {
    bool hasPlace = false;
    RECT place{}; ///< of the window when neither maximised nor minimised, in pixels of the workspace
    int dpi = USER_DEFAULT_SCREEN_DPI; ///< resolution in which the place was measured
    bool isMaximized = false;
    int columnWidths[kListColumns] = {160, 60, 100, 160, 120}; ///< pixels at 96 per inch
    int sortColumn = 0;                                        ///< -1: rows stay in the order they came
    bool sortsDescending = false;
};

/// Reads the settings; values that are missing or make no sense keep their defaults.
[[nodiscard]] WindowSettings LoadWindowSettings();

/// Writes the settings; a registry that refuses is ignored.
void SaveWindowSettings(const WindowSettings& settings);

} // namespace quilla
