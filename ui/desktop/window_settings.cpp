#include "ui/window_settings.h"

#include "platform/win32/handle.h"

namespace quilla {

namespace {

constexpr const wchar_t* kPlaceNames[] = {L"Left", L"Top", L"Right", L"Bottom"};
constexpr LONG RECT::*kPlaceEdges[] = {&RECT::left, &RECT::top, &RECT::right, &RECT::bottom};
constexpr const wchar_t* kColumnNames[kListColumns] = {L"VolumeWidth", L"SizeWidth", L"EncryptionWidth",
                                                       L"KeyWidth", L"StateWidth"};
constexpr wchar_t kDpiName[] = L"Dpi";
constexpr wchar_t kMaximizedName[] = L"Maximized";
constexpr wchar_t kSortColumnName[] = L"SortColumn";
constexpr wchar_t kDescendingName[] = L"SortDescending";

/// Wider than any screen, so that a damaged value cannot push a column out of reach.
constexpr int kMaxColumnWidth = 4096;

/// Farther than any screen; sums and differences of two such numbers do not overflow.
constexpr int kMaxEdge = 32767;

class SettingsKey {
  public:
    explicit SettingsKey(UniqueRegistryKey key) : key_(std::move(key)) {}

    [[nodiscard]] bool Read(const wchar_t* name, int& number) const {
        DWORD value = 0;
        DWORD size = sizeof(value);
        const LSTATUS status =
            RegGetValueW(key_.Get(), nullptr, name, RRF_RT_REG_DWORD, nullptr, &value, &size);
        if (status == ERROR_SUCCESS)
            number = static_cast<int>(value);
        return status == ERROR_SUCCESS;
    }

    void Write(const wchar_t* name, int number) const {
        const auto value = static_cast<DWORD>(number);
        RegSetValueExW(key_.Get(), name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), sizeof(value));
    }

  private:
    UniqueRegistryKey key_;
};

bool ReadPlace(const SettingsKey& key, RECT& place) {
    RECT read{};
    for (int edge = 0; edge < 4; ++edge) {
        int position = 0;
        if (!key.Read(kPlaceNames[edge], position) || position < -kMaxEdge || position > kMaxEdge)
            return false;
        read.*kPlaceEdges[edge] = position;
    }
    if (read.left >= read.right || read.top >= read.bottom)
        return false;
    place = read;
    return true;
}

bool ReadFlag(const SettingsKey& key, const wchar_t* name) {
    int value = 0;
    return key.Read(name, value) && value != 0;
}

} // namespace

WindowSettings LoadWindowSettings() {
    WindowSettings settings;
    HKEY opened = nullptr;
    if (RegOpenKeyExW(HKEY_CURRENT_USER, kWindowSettingsKey, 0, KEY_READ, &opened) != ERROR_SUCCESS)
        return settings;
    const SettingsKey key{UniqueRegistryKey(opened)};
    settings.hasPlace = ReadPlace(key, settings.place);
    int dpi = 0;
    if (key.Read(kDpiName, dpi) && dpi >= USER_DEFAULT_SCREEN_DPI / 2 && dpi <= USER_DEFAULT_SCREEN_DPI * 10)
        settings.dpi = dpi;
    settings.isMaximized = ReadFlag(key, kMaximizedName);
    for (int column = 0; column < kListColumns; ++column) {
        int width = 0;
        if (key.Read(kColumnNames[column], width) && width >= 0 && width <= kMaxColumnWidth)
            settings.columnWidths[column] = width;
    }
    int sortColumn = -1;
    if (key.Read(kSortColumnName, sortColumn) && sortColumn >= -1 && sortColumn < kListColumns)
        settings.sortColumn = sortColumn;
    settings.sortsDescending = ReadFlag(key, kDescendingName);
    return settings;
}

void SaveWindowSettings(const WindowSettings& settings) {
    HKEY created = nullptr;
    if (RegCreateKeyExW(HKEY_CURRENT_USER, kWindowSettingsKey, 0, nullptr, 0, KEY_WRITE, nullptr, &created,
                        nullptr) != ERROR_SUCCESS)
        return;
    const SettingsKey key{UniqueRegistryKey(created)};
    if (settings.hasPlace)
        for (int edge = 0; edge < 4; ++edge)
            key.Write(kPlaceNames[edge], static_cast<int>(settings.place.*kPlaceEdges[edge]));
    key.Write(kDpiName, settings.dpi);
    key.Write(kMaximizedName, settings.isMaximized);
    for (int column = 0; column < kListColumns; ++column)
        key.Write(kColumnNames[column], settings.columnWidths[column]);
    key.Write(kSortColumnName, settings.sortColumn);
    key.Write(kDescendingName, settings.sortsDescending);
}

} // namespace quilla
