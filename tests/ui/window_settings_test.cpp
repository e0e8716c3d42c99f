// What the main window keeps in the registry, and what damaged values do to it.

#include "tests/ui/ui_fixture.h"
#include "ui/window_settings.h"

#include <algorithm>

namespace quilla {
namespace {

using namespace test;

constexpr wchar_t kKey[] = L"Software\\Orvane\\Quilla\\Window";

class WindowSettingsTest : public testing::Test {
  protected:
    WindowSettingsTest() { RegDeleteTreeW(HKEY_CURRENT_USER, kProgramKey); }
    ~WindowSettingsTest() override { RegDeleteTreeW(HKEY_CURRENT_USER, kProgramKey); }

    static void Set(const wchar_t* name, DWORD value) {
        RegSetKeyValueW(HKEY_CURRENT_USER, kKey, name, REG_DWORD, &value, sizeof(value));
    }
};

TEST_F(WindowSettingsTest, ComeBack) {
    const WindowSettings saved{.hasPlace = true,
                               .place = {-20, 30, 500, 600},
                               .dpi = 144,
                               .isMaximized = true,
                               .columnWidths = {1, 0, 300, 4096},
                               .sortColumn = 3,
                               .sortsDescending = true};
    SaveWindowSettings(saved);
    const WindowSettings read = LoadWindowSettings();
    EXPECT_TRUE(read.hasPlace);
    EXPECT_TRUE(EqualRect(&read.place, &saved.place));
    EXPECT_EQ(read.dpi, 144);
    EXPECT_TRUE(read.isMaximized && read.sortsDescending);
    EXPECT_TRUE(std::ranges::equal(read.columnWidths, saved.columnWidths));
    EXPECT_EQ(read.sortColumn, 3);
}

TEST_F(WindowSettingsTest, KeepTheirDefaultsForWhatMakesNoSense) {
    Set(L"Left", 100);
    Set(L"Top", 100);
    Set(L"Right", 100); // no width
    Set(L"Bottom", 300);
    Set(L"VolumeWidth", 0xFFFFFFFF);
    Set(L"SizeWidth", 5000);
    Set(L"KeyWidth", 77);
    Set(L"SortColumn", 4);
    Set(L"Dpi", 0);
    const wchar_t text[] = L"wide";
    RegSetKeyValueW(HKEY_CURRENT_USER, kKey, L"EncryptionWidth", REG_SZ, text, sizeof(text));
    const WindowSettings read = LoadWindowSettings();
    EXPECT_FALSE(read.hasPlace || read.isMaximized);
    constexpr int kExpected[] = {160, 60, 100, 77};
    EXPECT_TRUE(std::ranges::equal(read.columnWidths, kExpected));
    EXPECT_EQ(read.sortColumn, -1);
    EXPECT_EQ(read.dpi, 96);
}

} // namespace
} // namespace quilla
